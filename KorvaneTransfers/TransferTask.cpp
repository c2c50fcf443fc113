#include "KorvaneTransfers/TransferTask.hpp"

#include "KorvaneCore/background/SessionFiles.hpp"
#include "KorvaneCore/background/TaskFailure.hpp"
#include "KorvaneCore/http/HTTPError.hpp"
#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneCore/platform/OpenFile.hpp"

#include <boost/system/system_error.hpp>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

namespace Korvane::TransferTask {

using namespace TransferMessages;

namespace {

constexpr std::int64_t longestIdle = 86'400;

class FileSource final : public BodySource {
public:
    explicit FileSource(OpenFile file) : file_(std::move(file)), size_(file_.size()) {}

    [[nodiscard]] std::uint64_t size() const override { return size_; }

    void read(std::uint64_t offset, KRCrypto::MutableBytes into) override { file_.readAt(offset, into); }

private:
    OpenFile file_;
    std::uint64_t size_;
};

/// Its file is removed at the end unless it is kept.
class FileSink final : public BodySink {
public:
    FileSink(OpenFile file, std::uint64_t most) : file_(std::move(file)), rest_(most) {}

    FileSink(const FileSink&) = delete;
    FileSink& operator=(const FileSink&) = delete;

    ~FileSink() override {
        std::error_code error;
        if (!kept_ && !std::filesystem::remove(file_.path(), error))
            Log::warning("transfers", "cannot remove a partial download: " + error.message());
    }

    bool write(KRCrypto::ByteView bytes) override {
        if (bytes.size() > rest_)
            return false;
        file_.append(bytes);
        rest_ -= bytes.size();
        return true;
    }

    void keep() { kept_ = true; }

private:
    OpenFile file_;
    std::uint64_t rest_;
    bool kept_ = false;
};

HTTPRequest requestOf(const TaskOrder& order) {
    if (order.idleSeconds < 1 || order.idleSeconds > longestIdle || order.maxBytes < 0)
        throw HTTPError(HTTPError::Kind::malformed, "a number is out of range");
    HTTPRequest request;
    request.method = order.method;
    request.url = order.url;
    for (const auto& [name, value] : order.headers)
        request.headers.push_back({name, KRCrypto::SecretBytes::copyOf(value)});
    request.maxAnswerSize = maxBody;
    request.allowsCellular = order.allowsCellular;
    request.idle = std::chrono::seconds(order.idleSeconds);
    return request;
}

bool isSuccess(int status) {
    return status >= 200 && status <= 299;
}

/// Of the headers the one that clients read. A message is JSON, so what a server says in other bytes than
/// ASCII must not come into it.
void take(TaskResult& result, HTTPResponse answer, bool inFile) {
    static constexpr const char* wait = "Retry-After";
    const auto isASCII = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
    result.status = answer.status;
    if (const auto value = answer.header(wait); value && std::ranges::all_of(*value, isASCII))
        result.headers.push_back({wait, std::string(*value)});
    if (!inFile)
        result.body = std::move(answer.body);
}

asio::awaitable<TaskResult> carryOut(std::shared_ptr<HTTPSession> session, TaskOrder order) {
    TaskResult result;
    if (!SessionFiles::isName(order.file))
        throw HTTPError(HTTPError::Kind::malformed, "the file is not named");
    const auto file = SessionFiles::staged(order.file);
    auto request = requestOf(order);
    if (order.kind == TaskKind::upload) {
        FileSource source(OpenFile::forReading(file));
        HeadSink sink(maxBody);
        request.source = &source;
        request.sink = &sink;
        auto answer = co_await session->send(std::move(request));
        if (isSuccess(answer.status))
            answer.body = std::move(sink.head());
        take(result, std::move(answer), false);
        co_return result;
    }
    FileSink sink(OpenFile::create(file), static_cast<std::uint64_t>(order.maxBytes));
    request.sink = &sink;
    auto answer = co_await session->send(std::move(request));
    const bool inFile = isSuccess(answer.status);
    take(result, std::move(answer), inFile);
    if (inFile)
        sink.keep();
    co_return result;
}

} // namespace

asio::awaitable<TaskResult> run(std::shared_ptr<HTTPSession> session, TaskOrder order) {
    TaskResult result;
    try {
        result = co_await carryOut(std::move(session), order);
    } catch (const boost::system::system_error& error) {
        if (error.code() == asio::error::operation_aborted)
            throw;
        result.failure = TaskFailure::from(error);
    } catch (const std::exception& error) {
        result.failure = TaskFailure::from(error);
    }
    result.task = order.task;
    result.file = order.file;
    co_return result;
}

} // namespace Korvane::TransferTask
