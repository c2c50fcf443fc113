#include "KorvaneCore/background/BackgroundSession.hpp"

#include "KorvaneCore/background/SessionFiles.hpp"
#include "KorvaneCore/background/TaskFailure.hpp"
#include "KorvaneCore/config/CrossProcessLock.hpp"
#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/http/HTTPError.hpp"
#include "KorvaneCore/json/KRJSONRecords.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/LocalSocket.hpp"
#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneCore/platform/Process.hpp"
#include "KorvaneCore/platform/RunToEnd.hpp"
#include "KorvaneCore/platform/Spawn.hpp"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/system/system_error.hpp>

#include <optional>
#include <stdexcept>
#include <utility>

namespace Korvane {

using namespace TransferMessages;

namespace {

constexpr int attempts = 3; // a helper may be just about to end when it is found
constexpr std::chrono::seconds startTimeout{20};

/// One that listens; none when there is none.
std::optional<FileDescriptor> connection(const std::filesystem::path& socket) {
    try {
        return LocalSocket::connect(socket);
    } catch (const FileError& error) {
        if (error.code() == std::errc::no_such_file_or_directory ||
            error.code() == std::errc::connection_refused)
            return std::nullopt;
        throw;
    }
}

CrossProcessLock lockStart(const std::string& identifier) {
    asio::io_context context;
    return runToEnd(context, CrossProcessLock::acquire(SessionFiles::startLock(identifier), startTimeout));
}

/// A connection to the helper, which is started when there is none.
FileDescriptor reach(const BackgroundSession::Configuration& configuration) {
    const auto socket = SessionFiles::socket(configuration.identifier);
    if (auto found = connection(socket))
        return *std::move(found);
    const auto lock = lockStart(configuration.identifier);
    if (auto found = connection(socket)) // another process may have been faster
        return *std::move(found);
    const auto code = Process::run(configuration.helper, {"--container", SharedContainer::location().string(),
                                                          "--identifier", configuration.identifier});
    if (code != 0)
        throw std::runtime_error("the helper ended with code " + std::to_string(code));
    return LocalSocket::connect(socket);
}

/// Says hello and waits for the answer, so long.
Welcome greet(FileDescriptor& connection, std::chrono::seconds patience) {
    if (!LocalSocket::isOwnUser(connection.get()))
        throw std::runtime_error("another user's helper");
    asio::io_context context;
    const auto channel = std::make_shared<MessageChannel>(context.get_executor(), std::move(connection));
    std::optional<FromHelper> answer;
    asio::co_spawn(
        context,
        [&]() -> asio::awaitable<void> {
            FromClient hello;
            hello.hello = Hello{};
            channel->send(KRJSON::write(hello));
            const auto text = co_await channel->receive();
            answer = KRJSON::read<FromHelper>(text);
        },
        [](const std::exception_ptr& error) {
            if (error)
                std::rethrow_exception(error);
        });
    context.run_for(patience);
    if (!answer)
        throw std::runtime_error("the helper does not answer");
    if (!answer->welcome || answer->welcome->version != version)
        throw std::runtime_error("the helper speaks otherwise");
    connection = channel->release();
    return *answer->welcome;
}

/// Of a task and its staged file: whatever cannot be found out about that, the caller must be told.
BackgroundSession::Completion completionOf(std::int64_t task, const std::string& file) {
    BackgroundSession::Completion completion;
    completion.task = task;
    try {
        completion.file = SessionFiles::staged(file);
    } catch (const std::exception&) {
        completion.error = std::current_exception();
    }
    return completion;
}

HTTPResponse responseOf(const TaskResult& result) {
    HTTPResponse response;
    response.status = static_cast<int>(result.status.value_or(0));
    for (const auto& [name, value] : result.headers)
        response.headers.emplace_back(name, value);
    return response;
}

} // namespace

std::shared_ptr<BackgroundSession>
BackgroundSession::open(const Strand& strand, const Configuration& configuration, Delegate& delegate) {
    for (int attempt = 1;; ++attempt) {
        try {
            auto connection = reach(configuration);
            const auto welcome = greet(connection, configuration.patience);
            const std::shared_ptr<BackgroundSession> session(
                new BackgroundSession(strand, std::move(connection), welcome, delegate));
            spawn(strand, "transfers", session->listen());
            return session;
        } catch (const boost::system::system_error&) { // the connection ended
            if (attempt == attempts)
                throw;
        }
    }
}

BackgroundSession::BackgroundSession(const Strand& strand, FileDescriptor connection, const Welcome& welcome,
                                     Delegate& delegate)
    : strand_(strand),
      channel_(std::make_shared<MessageChannel>(strand, std::move(connection))),
      delegate_(delegate),
      helper_(welcome.process),
      firstTask_(welcome.firstTask) {}

template <class Content>
void BackgroundSession::tell(std::optional<Content> FromClient::* member, const Content& content) {
    FromClient message;
    message.*member = content;
    channel_->send(KRJSON::write(message));
}

void BackgroundSession::resume(TaskOrder order) {
    asio::post(strand_, [self = shared_from_this(), order = std::move(order)] {
        self->running_.emplace(order.task, order.file);
        if (self->open_)
            self->tell(&FromClient::start, order);
        else
            self->lose();
    });
}

void BackgroundSession::cancel(std::int64_t task) {
    asio::post(strand_, [self = shared_from_this(), task] {
        if (self->running_.erase(task) != 0 && self->open_)
            self->tell(&FromClient::cancel, task);
    });
}

void BackgroundSession::askForEvents() {
    asio::post(strand_, [self = shared_from_this()] {
        if (self->open_)
            self->tell(&FromClient::events, true);
    });
}

void BackgroundSession::close() {
    closed_ = true;
    open_ = false;
    channel_->close();
}

asio::awaitable<void> BackgroundSession::listen() {
    const auto self = shared_from_this();
    try {
        while (!closed_) {
            const auto text = co_await channel_->receive();
            take(KRJSON::read<FromHelper>(text));
        }
    } catch (const std::exception& error) {
        Log::debug("transfers", std::string("session ended: ") + error.what());
    }
    lose();
}

void BackgroundSession::take(const FromHelper& message) {
    if (closed_)
        return;
    if (message.finished)
        finish(*message.finished);
    if (message.eventsDelivered)
        delegate_.didFinishEvents();
    if (message.refused)
        Log::error("transfers", "the helper refused a message: " + message.refused->message);
}

void BackgroundSession::finish(const TaskResult& result) {
    auto completion = completionOf(result.task, result.file);
    if (result.failure) {
        completion.error = TaskFailure::toException(*result.failure, completion.file);
    } else if (!completion.error) {
        completion.response = responseOf(result);
        if (result.body)
            delegate_.didReceive(result.task, *result.body);
        else
            delegate_.didFinishDownloading(result.task, completion.file);
    }
    running_.erase(result.task);
    delegate_.didComplete(std::move(completion));
    tell(&FromClient::collected, result.task);
}

/// The helper is gone, and the running tasks with it.
void BackgroundSession::lose() {
    open_ = false;
    channel_->close();
    const auto lost = std::exchange(running_, {});
    for (const auto& [task, file] : lost) {
        if (closed_)
            return;
        auto completion = completionOf(task, file);
        completion.error =
            std::make_exception_ptr(HTTPError(HTTPError::Kind::connection, "the transfer helper ended"));
        delegate_.didComplete(std::move(completion));
    }
}

} // namespace Korvane
