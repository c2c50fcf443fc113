#include "KorvaneCore/api/BackgroundBlobTransport.hpp"

#include "KorvaneCore/api/StorageCalls.hpp"
#include "KorvaneCore/background/SessionFiles.hpp"
#include "KorvaneCore/config/KRIdentifiers.hpp"
#include "KorvaneCore/http/CurlSession.hpp"
#include "KorvaneCore/platform/Bundle.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/HandOver.hpp"
#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneCore/platform/Offload.hpp"
#include "KorvaneCore/platform/OpenFile.hpp"

#include <boost/asio/associated_cancellation_slot.hpp>
#include <boost/asio/associated_executor.hpp>
#include <boost/asio/post.hpp>
#include <boost/system/system_error.hpp>
#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <utility>

namespace Korvane {

using TransferMessages::TaskKind;
using TransferMessages::TaskOrder;

namespace {

/// Beside this program: in the build tree and where both are installed.
std::filesystem::path installedHelper() {
    return programPath().parent_path() / "korvane-transfers";
}

std::string freshName() {
    return to_string(boost::uuids::random_generator()());
}

void fill(KRCrypto::MutableBytes into, const std::filesystem::path& path) {
    OpenFile::forReading(path).readAt(0, into);
}

} // namespace

BackgroundBlobTransport::BackgroundBlobTransport(std::string identifier, bool allowsCellular)
    : BackgroundBlobTransport(std::move(identifier), allowsCellular, Options()) {}

BackgroundBlobTransport::BackgroundBlobTransport(std::string identifier, bool allowsCellular, Options options)
    : options_(std::move(options)),
      strand_(asio::make_strand(asio::any_io_executor(queue_.get_executor()))),
      identifier_(std::move(identifier)),
      allowsCellular_(allowsCellular) {}

// Without memory for one posted handler the process ends here.
BackgroundBlobTransport::~BackgroundBlobTransport() { // NOLINT(bugprone-exception-escape)
    asio::post(strand_, [this] {
        std::shared_ptr<BackgroundSession> session;
        {
            const MutexLock lock(lock_);
            session = std::move(session_);
        }
        if (session)
            session->close();
    });
    queue_.join();
}

BackgroundBlobTransport& BackgroundBlobTransport::shared() {
    static BackgroundBlobTransport transport{std::string(KRIdentifiers::backgroundSessionIdentifier), true};
    return transport;
}

bool BackgroundBlobTransport::allowsCellular() const {
    const MutexLock lock(lock_);
    return allowsCellular_;
}

void BackgroundBlobTransport::setAllowsCellular(bool allowed) {
    const MutexLock lock(lock_);
    allowsCellular_ = allowed;
}

bool BackgroundBlobTransport::usingForegroundFallback() const {
    const MutexLock lock(lock_);
    return backgroundUnavailable_;
}

void BackgroundBlobTransport::setBackgroundCompletionHandler(CompletionHandler handler) {
    {
        const MutexLock lock(lock_);
        completionHandler_ = std::move(handler);
    }
    asio::post(strand_, [this] {
        try {
            openedSession()->askForEvents();
        } catch (const BackgroundSessionUnavailable& error) {
            Log::warning("transfers", error.what());
        }
    });
}

asio::awaitable<void> BackgroundBlobTransport::put(std::string url, KRCrypto::ByteView data) {
    try {
        co_await putAnyhow(std::move(url), data);
    } catch (const std::exception& error) {
        StorageCalls::rethrow(error);
    }
}

asio::awaitable<void> BackgroundBlobTransport::putAnyhow(std::string url, KRCrypto::ByteView data) {
    const auto session = co_await usableSession();
    if (!session) {
        co_await StorageCalls::putPart(fallback(), std::move(url), data, allowsCellular());
        co_return;
    }
    const auto file = freshName();
    StagedBlob staged(SessionFiles::staged(file));
    co_await offload([&] { writeTemporaryFile(staged.file(), KRCrypto::asText(data)); });
    auto request = StorageCalls::putRequest(std::move(url));
    const auto answer =
        co_await run(session, std::move(request), TaskKind::upload, 0, file, std::move(staged));
    StorageCalls::requireSuccess(answer.response);
}

asio::awaitable<KRCrypto::Bytes> BackgroundBlobTransport::get(std::string url, ByteRange range) {
    KRCrypto::Bytes bytes(StorageCalls::lengthOf(range));
    co_await getInto(std::move(url), range.first, bytes);
    co_return bytes;
}

asio::awaitable<void> BackgroundBlobTransport::getInto(std::string url, std::int64_t first,
                                                       KRCrypto::MutableBytes into) {
    const auto range = StorageCalls::rangeOf(first, into.size());
    if (into.empty())
        co_return;
    try {
        co_await getAnyhow(std::move(url), range, into);
    } catch (const std::exception& error) {
        StorageCalls::rethrow(error);
    }
}

asio::awaitable<void> BackgroundBlobTransport::getAnyhow(std::string url, ByteRange range,
                                                         KRCrypto::MutableBytes into) {
    const auto session = co_await usableSession();
    if (!session) {
        co_await StorageCalls::getRangeInto(fallback(), std::move(url), range.first, into, allowsCellular());
        co_return;
    }
    auto request = StorageCalls::getRequest(std::move(url), range);
    const auto answer = co_await run(session, std::move(request), TaskKind::download,
                                     static_cast<std::int64_t>(into.size()), freshName(), StagedBlob());
    StorageCalls::requireSuccess(answer.response);
    const auto received = co_await offload([&] {
        const auto size = OpenFile::forReading(answer.file.file()).size();
        if (size == into.size())
            fill(into, answer.file.file());
        return size;
    });
    StorageCalls::requireRange(answer.response, range, received);
}

/// The open session, or none when this process must transfer by itself.
asio::awaitable<std::shared_ptr<BackgroundSession>> BackgroundBlobTransport::usableSession() {
    if (usingForegroundFallback())
        co_return nullptr;
    try {
        co_return co_await on<std::shared_ptr<BackgroundSession>>(
            strand_,
            [this]() -> asio::awaitable<std::shared_ptr<BackgroundSession>> { co_return openedSession(); });
    } catch (const BackgroundSessionUnavailable&) {
        co_return nullptr;
    }
}

/// On the strand, so one at a time.
std::shared_ptr<BackgroundSession> BackgroundBlobTransport::openedSession() {
    {
        const MutexLock lock(lock_);
        if (backgroundUnavailable_)
            throw BackgroundSessionUnavailable();
        if (session_ && session_->isOpen())
            return session_;
    }
    try {
        const auto helper = options_.helper.empty() ? installedHelper() : options_.helper;
        auto session = BackgroundSession::open(strand_, {identifier_, helper, options_.patience}, *this);
        const MutexLock lock(lock_);
        session_ = session;
        return session;
    } catch (const std::exception& error) {
        Log::warning("transfers", std::string("no background session: ") + error.what());
        const MutexLock lock(lock_);
        backgroundUnavailable_ = true;
        throw BackgroundSessionUnavailable();
    }
}

std::shared_ptr<HTTPSession> BackgroundBlobTransport::fallback() {
    const MutexLock lock(lock_);
    if (!foreground_) {
        CurlSession::Options options;
        options.idle = options_.requestTimeout;
        options.total = options_.resourceTimeout;
        foreground_ = std::make_shared<CurlSession>(options);
    }
    return foreground_;
}

/// Has the helper carry out one request and waits for its end. A caller that is cancelled does not wait, and
/// the transfer ends too.
asio::awaitable<BackgroundBlobTransport::Answer>
BackgroundBlobTransport::run(std::shared_ptr<BackgroundSession> session, HTTPRequest request, TaskKind kind,
                             std::int64_t maxBytes, std::string file, StagedBlob staged) {
    TaskOrder order;
    order.task = session->firstTask() + tasks_++;
    order.kind = kind;
    order.method = std::move(request.method);
    order.url = std::move(request.url);
    for (const auto& [name, value] : request.headers)
        order.headers.push_back({name, std::string(value.text())});
    order.file = std::move(file);
    order.maxBytes = maxBytes;
    order.idleSeconds = options_.requestTimeout.count();
    order.allowsCellular = allowsCellular();
    co_return co_await asio::async_initiate<const asio::use_awaitable_t<>, void(std::exception_ptr, Answer)>(
        [this](auto handler, const std::shared_ptr<BackgroundSession>& open, TaskOrder toDo,
               StagedBlob upload) {
            auto slot = asio::get_associated_cancellation_slot(handler);
            // A std::function must be copyable, which neither a handler nor an answer is.
            auto home = asio::get_associated_executor(handler);
            auto parked = std::make_shared<decltype(handler)>(std::move(handler));
            park(toDo.task, std::move(upload),
                 [parked = std::move(parked), home = std::move(home)](std::exception_ptr error,
                                                                      Answer answer) mutable {
                     handOver(std::move(home), [parked = std::move(parked), error = std::move(error),
                                                answer = std::move(answer)]() mutable {
                         (*parked)(std::move(error), std::move(answer));
                     });
                 });
            if (slot.is_connected())
                slot.assign([this, open, task = toDo.task](asio::cancellation_type) { cancel(*open, task); });
            open->resume(std::move(toDo));
        },
        asio::use_awaitable, session, std::move(order), std::move(staged));
}

void BackgroundBlobTransport::park(std::int64_t task, StagedBlob staged, Caller caller) {
    const MutexLock lock(lock_);
    if (!staged.file().empty())
        stagedFiles_.emplace(task, std::move(staged));
    waiting_.emplace(task, std::move(caller));
}

/// Takes all that is kept of a task. Empty when its caller was resumed before, or is of another process.
BackgroundBlobTransport::Caller BackgroundBlobTransport::unpark(std::int64_t task, StagedBlob& staged,
                                                                std::optional<KRCrypto::Bytes>& body) {
    const MutexLock lock(lock_);
    if (auto file = stagedFiles_.extract(task))
        staged = std::move(file.mapped());
    if (auto bytes = bodies_.extract(task))
        body = std::move(bytes.mapped());
    auto caller = waiting_.extract(task);
    return caller ? std::move(caller.mapped()) : nullptr;
}

void BackgroundBlobTransport::cancel(BackgroundSession& session, std::int64_t task) {
    StagedBlob staged;
    std::optional<KRCrypto::Bytes> body;
    const auto caller = unpark(task, staged, body);
    if (!caller)
        return;
    session.cancel(task);
    caller(std::make_exception_ptr(boost::system::system_error(asio::error::operation_aborted)), {});
}

void BackgroundBlobTransport::didReceive(std::int64_t task, KRCrypto::ByteView bytes) {
    const MutexLock lock(lock_);
    auto& body = bodies_[task];
    body.insert(body.end(), bytes.begin(), bytes.end());
}

void BackgroundBlobTransport::didFinishDownloading(std::int64_t task, const std::filesystem::path& file) {
    // The caller reads it on a worker, not here where other tasks wait.
    const MutexLock lock(lock_);
    stagedFiles_.insert_or_assign(task, StagedBlob(file));
}

void BackgroundBlobTransport::didComplete(BackgroundSession::Completion completion) {
    StagedBlob staged;
    std::optional<KRCrypto::Bytes> body;
    const auto caller = unpark(completion.task, staged, body);
    if (staged.file().empty()) // of another process, or a download that failed
        staged = StagedBlob(std::move(completion.file));
    if (!caller)
        return;
    Answer answer;
    answer.response = std::move(completion.response);
    answer.response.body = std::move(body).value_or(KRCrypto::Bytes());
    answer.file = std::move(staged);
    caller(completion.error, std::move(answer));
}

void BackgroundBlobTransport::didFinishEvents() {
    CompletionHandler handler;
    {
        const MutexLock lock(lock_);
        handler = std::exchange(completionHandler_, nullptr);
    }
    if (handler)
        handler();
}

} // namespace Korvane
