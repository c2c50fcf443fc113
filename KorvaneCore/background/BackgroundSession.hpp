#pragma once

#include "KorvaneCore/background/MessageChannel.hpp"
#include "KorvaneCore/background/TransferMessages.hpp"
#include "KorvaneCore/http/HTTPSession.hpp"
#include "KorvaneCore/platform/FileDescriptor.hpp"
#include "KorvaneCore/platform/Strand.hpp"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace Korvane {

/// One process's end of a background session. Its tasks are carried out by the helper of that identifier,
/// which goes on while this process is stopped or gone; what ends then is told to the next process that opens
/// a session with the identifier.
class BackgroundSession : public std::enable_shared_from_this<BackgroundSession> {
public:
    struct Configuration {
        std::string identifier;
        std::filesystem::path helper;      ///< the program to start when no helper runs
        std::chrono::seconds patience{10}; ///< how long a helper may take to answer the greeting
    };

    struct Completion {
        std::int64_t task = 0;
        std::filesystem::path file; ///< the staged file; now the delegate's to remove
        /// HTTPError, or FileError for the staged file; none when there is an answer.
        std::exception_ptr error;
        HTTPResponse response; ///< without the body, which was given to didReceive()
    };

    /// Told on the session's strand. Must outlive the session's being open.
    class Delegate {
    public:
        Delegate() = default;
        Delegate(const Delegate&) = delete;
        Delegate& operator=(const Delegate&) = delete;

        /// A piece of an answer's body that does not go into a file.
        virtual void didReceive(std::int64_t task, KRCrypto::ByteView bytes) = 0;

        /// A download has written its file, which didComplete() hands over.
        virtual void didFinishDownloading(std::int64_t task, const std::filesystem::path& file) = 0;

        /// The last event of a task: of one that was resumed exactly one, unless it was cancelled; also of
        /// tasks of a process that is gone.
        virtual void didComplete(Completion completion) = 0;

        /// All that ended while no process had the session open has been told.
        virtual void didFinishEvents() = 0;

    protected:
        ~Delegate() = default;
    };

    /// Finds the helper or starts it, and greets it. Blocks, for up to about a minute when the helper hangs,
    /// so it is called on `strand`, which must have a thread of its own. Throws FileError,
    /// std::runtime_error, and what the container throws.
    static std::shared_ptr<BackgroundSession> open(const Strand& strand, const Configuration& configuration,
                                                   Delegate& delegate);

    BackgroundSession(const BackgroundSession&) = delete;
    BackgroundSession& operator=(const BackgroundSession&) = delete;
    ~BackgroundSession() = default;

    /// False once the helper is gone; then a new session can be opened. Callable from any thread.
    [[nodiscard]] bool isOpen() const noexcept { return open_; }

    /// The helper's process.
    [[nodiscard]] std::int64_t helper() const noexcept { return helper_; }

    /// Tasks are numbered from here on. Another session, with another helper, may start from the same number.
    [[nodiscard]] std::int64_t firstTask() const noexcept { return firstTask_; }

    /// Starts a task. Callable from any thread.
    void resume(TransferMessages::TaskOrder order);

    /// Ends a task without a further event. Callable from any thread.
    void cancel(std::int64_t task);

    /// Has didFinishEvents() told again, after all that is on its way. Callable from any thread.
    void askForEvents();

    /// On the strand: lets go of the helper. Running tasks go on; no further event comes.
    void close();

private:
    BackgroundSession(const Strand& strand, FileDescriptor connection,
                      const TransferMessages::Welcome& welcome, Delegate& delegate);

    template <class Content>
    void tell(std::optional<Content> TransferMessages::FromClient::* member, const Content& content);

    asio::awaitable<void> listen();
    void take(const TransferMessages::FromHelper& message);
    void finish(const TransferMessages::TaskResult& result);
    void lose();

    const Strand strand_;
    const std::shared_ptr<MessageChannel> channel_;
    Delegate& delegate_;
    const std::int64_t helper_;
    const std::int64_t firstTask_;
    std::atomic<bool> open_ = true;
    bool closed_ = false;
    std::map<std::int64_t, std::string> running_; ///< and their staged files
};

} // namespace Korvane
