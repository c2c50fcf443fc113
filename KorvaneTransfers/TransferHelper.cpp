#include "KorvaneTransfers/TransferHelper.hpp"

#include "KorvaneCore/background/SessionFiles.hpp"
#include "KorvaneCore/json/KRJSONRecords.hpp"
#include "KorvaneCore/platform/LocalSocket.hpp"
#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneCore/platform/Process.hpp"
#include "KorvaneCore/platform/Spawn.hpp"
#include "KorvaneTransfers/KeptResults.hpp"
#include "KorvaneTransfers/TransferTask.hpp"

#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/system/system_error.hpp>

#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

namespace Korvane {

using namespace TransferMessages;

namespace {

constexpr std::int64_t tasksOfAClient = std::int64_t{1} << 32;

FromHelper refusal(std::string code, std::string message) {
    FromHelper answer;
    answer.refused = Refusal{std::move(code), std::move(message)};
    return answer;
}

void send(MessageChannel& client, const FromHelper& message) {
    client.send(KRJSON::write(message));
}

void tell(MessageChannel& client, const TaskResult& result) {
    FromHelper finished;
    finished.finished = result;
    send(client, finished);
}

void tellEventsDelivered(MessageChannel& client) {
    FromHelper told;
    told.eventsDelivered = true;
    send(client, told);
}

/// A count that goes down again, however its scope is left.
class Counted {
public:
    explicit Counted(std::size_t& count) : count_(count) { ++count_; }

    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;

    ~Counted() { --count_; }

private:
    std::size_t& count_;
};

} // namespace

TransferHelper::TransferHelper(Settings settings, FileDescriptor listening,
                               std::shared_ptr<HTTPSession> session)
    : settings_(std::move(settings)),
      session_(std::move(session)),
      acceptor_(context_, asio::local::stream_protocol(), listening.get()),
      activity_(context_) {
    (void)listening.release();
}

void TransferHelper::run() {
    const auto socket = SessionFiles::socket(settings_.identifier);
    for (auto& result : KeptResults::take(settings_.identifier))
        tasks_[result.task].result = std::move(result);
    spawn(context_.get_executor(), "transfers", accept());
    spawn(context_.get_executor(), "transfers", waitUntilIdle());
    context_.run();

    // Nobody can connect any more; whoever just did finds the connection closed and starts another helper.
    std::error_code error;
    if (!std::filesystem::remove(socket, error))
        Log::warning("transfers", "the socket was gone already");
    std::vector<TaskResult> uncollected;
    uncollected.reserve(tasks_.size());
    for (auto& [number, task] : tasks_)
        if (task.result)
            uncollected.push_back(*std::move(task.result));
    KeptResults::leave(settings_.identifier, std::move(uncollected));
}

asio::awaitable<void> TransferHelper::accept() {
    for (;;) {
        auto socket = co_await acceptor_.async_accept(asio::use_awaitable);
        FileDescriptor connection(socket.release());
        if (LocalSocket::isOwnUser(connection.get()))
            spawn(context_.get_executor(), "transfers", serve(std::move(connection)));
        else
            Log::warning("transfers", "turned away a process of another user");
    }
}

/// Ends everything once there was nothing to do for a while.
asio::awaitable<void> TransferHelper::waitUntilIdle() {
    for (;;) {
        activity_.expires_after(settings_.idle);
        boost::system::error_code busy;
        co_await activity_.async_wait(asio::redirect_error(asio::use_awaitable, busy));
        if (!busy && isIdle())
            break;
    }
    context_.stop();
}

bool TransferHelper::isIdle() const {
    return connections_ == 0 && running_ == 0;
}

void TransferHelper::touch() {
    activity_.cancel();
}

asio::awaitable<void> TransferHelper::serve(FileDescriptor connection) {
    const Counted counted(connections_);
    const auto client = std::make_shared<MessageChannel>(context_.get_executor(), std::move(connection));
    try {
        co_await converse(client);
    } catch (const MessageTooLong& error) {
        send(*client, refusal("tooLarge", error.what()));
        client->finish();
    } catch (const boost::system::system_error& error) {
        Log::debug("transfers", std::string("a client left: ") + error.what());
        client->close();
    }
    leave(client);
}

/// Until the client leaves, or says something after which nothing can be made of the rest.
asio::awaitable<void> TransferHelper::converse(Channel client) {
    bool greeted = false;
    for (;;) {
        const auto text = co_await client->receive();
        FromClient message;
        try {
            message = KRJSON::read<FromClient>(text);
        } catch (const JSONError& error) {
            send(*client, refusal("malformed", error.what()));
            continue;
        }
        if (greeted) {
            take(client, message);
        } else if (message.hello && message.hello->version == version) {
            greet(client, *message.hello);
            greeted = true;
        } else {
            send(*client, refusal("version", "this helper speaks version " + std::to_string(version)));
            client->finish();
            co_return;
        }
    }
}

void TransferHelper::greet(const Channel& client, const Hello&) {
    FromHelper answer;
    answer.welcome = Welcome{version, Process::identifier(), ++greeted_ * tasksOfAClient};
    send(*client, answer);
    clients_.push_back(client);
    adopt(client);
}

/// Gives the client every task that has lost its own.
void TransferHelper::adopt(const Channel& client) {
    for (auto& [number, task] : tasks_) {
        if (task.owner)
            continue;
        task.owner = client;
        task.adopted = true;
        if (task.result)
            tell(*client, *task.result);
    }
    tellEventsDelivered(*client);
}

void TransferHelper::leave(const Channel& client) {
    std::erase(clients_, client);
    for (auto& [number, task] : tasks_)
        if (task.owner == client)
            task.owner.reset();
    if (!clients_.empty())
        adopt(clients_.back());
    touch();
}

void TransferHelper::take(const Channel& client, const FromClient& message) {
    if (message.start)
        start(client, *message.start);
    else if (message.cancel)
        cancel(*message.cancel);
    else if (message.collected)
        collect(*message.collected);
    else if (message.events)
        tellEventsDelivered(*client);
    else
        send(*client, refusal("malformed", "a message without content"));
}

void TransferHelper::start(const Channel& client, TaskOrder order) {
    const auto number = order.task;
    if (tasks_.size() >= maxTasks || tasks_.contains(number)) {
        TaskResult refused;
        refused.task = number;
        refused.file = std::move(order.file);
        refused.failure = Failure{Failure::Kind::malformed, "the task cannot be taken", std::nullopt};
        tell(*client, refused);
        return;
    }
    auto& task = tasks_[number];
    task.owner = client;
    asio::co_spawn(
        context_,
        [this, order = std::move(order)]() -> asio::awaitable<void> {
            const Counted counted(running_);
            auto result = co_await TransferTask::run(session_, order);
            finish(order.task, std::move(result));
        },
        asio::bind_cancellation_slot(task.cancellation.slot(),
                                     [this, number](const std::exception_ptr& cancelled) {
                                         if (cancelled)
                                             tasks_.erase(number);
                                         touch();
                                     }));
}

void TransferHelper::cancel(std::int64_t number) {
    const auto found = tasks_.find(number);
    if (found == tasks_.end())
        return;
    if (found->second.result)
        tasks_.erase(found);
    else
        found->second.cancellation.emit(asio::cancellation_type::terminal);
}

void TransferHelper::collect(std::int64_t number) {
    const auto found = tasks_.find(number);
    if (found != tasks_.end() && found->second.result)
        tasks_.erase(found);
}

void TransferHelper::finish(std::int64_t number, TaskResult result) {
    auto& task = tasks_.at(number);
    task.result = std::move(result);
    if (!task.owner)
        return;
    tell(*task.owner, *task.result);
    if (task.adopted)
        tellEventsDelivered(*task.owner);
}

} // namespace Korvane
