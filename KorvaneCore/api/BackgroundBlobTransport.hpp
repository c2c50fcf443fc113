#pragma once

#include "KorvaneCore/api/BlobTransport.hpp"
#include "KorvaneCore/api/StagedBlob.hpp"
#include "KorvaneCore/background/BackgroundSession.hpp"
#include "KorvaneCore/http/HTTPSession.hpp"
#include "KorvaneCore/platform/Mutex.hpp"

#include <boost/asio/thread_pool.hpp>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace Korvane {

/// Transfers by a helper process, which go on while this one is stopped. Where no helper can be had, this
/// process transfers by itself, from then on for the life of this object.
///
/// Bytes pass through files in the folder for encrypted chunks; each is removed when its transfer ends. A
/// file that cannot be written or read is a FileError. What earlier processes ordered and did not wait for is
/// dropped, file and all. Must outlive the calls made on it, and be destroyed on no thread of its own
/// callbacks.
class BackgroundBlobTransport final : public BlobTransport, private BackgroundSession::Delegate {
public:
    /// The background session cannot be made. Never leaves the transport.
    class BackgroundSessionUnavailable : public std::exception {
    public:
        [[nodiscard]] const char* what() const noexcept override {
            return "the background session is unavailable";
        }
    };

    using CompletionHandler = std::function<void()>;

    struct Options {
        std::filesystem::path helper;            ///< the program; empty for the one installed with this one
        std::chrono::seconds requestTimeout{60}; ///< how long nothing may move
        std::chrono::seconds resourceTimeout{3600}; ///< how long a transfer by this process may take
        std::chrono::seconds patience{10};          ///< how long a helper may take to answer
    };

    BackgroundBlobTransport(std::string identifier, bool allowsCellular);
    BackgroundBlobTransport(std::string identifier, bool allowsCellular, Options options);
    BackgroundBlobTransport(const BackgroundBlobTransport&) = delete;
    BackgroundBlobTransport& operator=(const BackgroundBlobTransport&) = delete;
    ~BackgroundBlobTransport() override;

    /// The process's one for "app.korvane.transfers".
    static BackgroundBlobTransport& shared();

    asio::awaitable<void> put(std::string url, KRCrypto::ByteView data) override;
    asio::awaitable<KRCrypto::Bytes> get(std::string url, ByteRange range) override;
    asio::awaitable<void> getInto(std::string url, std::int64_t first, KRCrypto::MutableBytes into) override;

    /// Whether transfers from now on may use a mobile network.
    [[nodiscard]] bool allowsCellular() const KR_EXCLUDES(lock_);
    void setAllowsCellular(bool allowed) KR_EXCLUDES(lock_);

    /// Whether the background session turned out to be unavailable.
    [[nodiscard]] bool usingForegroundFallback() const KR_EXCLUDES(lock_);

    /// Called once, on a thread of this object's, when all that ended without a process to tell has been
    /// told. Opens the session for that; where there is none the handler is not called.
    void setBackgroundCompletionHandler(CompletionHandler handler) KR_EXCLUDES(lock_);

private:
    /// What a caller waits for.
    struct Answer {
        HTTPResponse response;
        StagedBlob file; ///< of a download
    };

    using Caller = std::function<void(std::exception_ptr, Answer)>;

    void didReceive(std::int64_t task, KRCrypto::ByteView bytes) override KR_EXCLUDES(lock_);
    void didFinishDownloading(std::int64_t task, const std::filesystem::path& file) override
        KR_EXCLUDES(lock_);
    void didComplete(BackgroundSession::Completion completion) override KR_EXCLUDES(lock_);
    void didFinishEvents() override KR_EXCLUDES(lock_);

    asio::awaitable<void> putAnyhow(std::string url, KRCrypto::ByteView data);
    asio::awaitable<void> getAnyhow(std::string url, ByteRange range, KRCrypto::MutableBytes into);
    asio::awaitable<std::shared_ptr<BackgroundSession>> usableSession();
    std::shared_ptr<BackgroundSession> openedSession() KR_EXCLUDES(lock_);
    std::shared_ptr<HTTPSession> fallback() KR_EXCLUDES(lock_);

    asio::awaitable<Answer> run(std::shared_ptr<BackgroundSession> session, HTTPRequest request,
                                TransferMessages::TaskKind kind, std::int64_t maxBytes, std::string file,
                                StagedBlob staged);
    void park(std::int64_t task, StagedBlob staged, Caller caller) KR_EXCLUDES(lock_);
    [[nodiscard]] Caller unpark(std::int64_t task, StagedBlob& staged, std::optional<KRCrypto::Bytes>& body)
        KR_EXCLUDES(lock_);
    void cancel(BackgroundSession& session, std::int64_t task);

    const Options options_;
    std::atomic<std::int64_t> tasks_ =
        0;                       ///< ordered so far: no number comes twice, whatever session it is of
    asio::thread_pool queue_{1}; ///< where the session tells its events
    const Strand strand_;

    mutable Mutex lock_;
    const std::string identifier_;
    std::shared_ptr<BackgroundSession> session_ KR_GUARDED_BY(lock_);
    std::map<std::int64_t, Caller> waiting_ KR_GUARDED_BY(lock_);
    std::map<std::int64_t, KRCrypto::Bytes> bodies_ KR_GUARDED_BY(lock_);
    std::map<std::int64_t, StagedBlob> stagedFiles_ KR_GUARDED_BY(lock_);
    CompletionHandler completionHandler_ KR_GUARDED_BY(lock_);
    bool backgroundUnavailable_ KR_GUARDED_BY(lock_) = false;
    std::shared_ptr<HTTPSession> foreground_ KR_GUARDED_BY(lock_);
    bool allowsCellular_ KR_GUARDED_BY(lock_);
};

} // namespace Korvane
