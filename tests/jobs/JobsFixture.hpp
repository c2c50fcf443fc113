#pragma once

#include "KRCrypto/Hex.hpp"
#include "KRCrypto/Sha256.hpp"
#include "KorvaneCore/api/ForegroundBlobTransport.hpp"
#include "KorvaneCore/jobs/TransferRunner.hpp"
#include "KorvaneCore/queue/TransferQueue.hpp"
#include "KorvaneCore/queue/TransferRules.hpp"
#include "tests/support/LocalService.hpp"

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <map>

namespace Korvane::Testing {

constexpr std::int64_t jobChunk = 40;

/// A run that keeps what is stored, as the queue does in its table.
class KeptRun final : public TransferRun {
public:
    explicit KeptRun(const TransferJob& job) {
        record_.id = "record";
        record_.kind = std::holds_alternative<UploadJob>(job) ? TransferRecord::Kind::upload
                                                              : TransferRecord::Kind::download;
        record_.payload = transferPayload(job);
    }

    [[nodiscard]] const TransferRecord& record() const noexcept override { return record_; }

    void save(const TransferJob& job) override { record_.payload = transferPayload(job); }

    void setProgress(std::int64_t progress, std::int64_t total) override {
        record_.progress = progress;
        record_.total = total;
    }

    asio::awaitable<void> reportOwnWrite(std::filesystem::path path, LocalStat stat) override {
        ownWrites[path] = stat;
        co_return;
    }

    [[nodiscard]] UploadJob upload() const { return std::get<UploadJob>(transferJob(record_)); }

    std::map<std::filesystem::path, LocalStat> ownWrites;

private:
    TransferRecord record_;
};

/// Passes everything on, and holds against each other what is sealed under one key for one place.
class WatchingTransport final : public BlobTransport {
public:
    explicit WatchingTransport(std::shared_ptr<APIClient> api) : below_(std::move(api)) {}

    asio::awaitable<void> put(std::string url, KRCrypto::ByteView data) override {
        if (beforePut)
            beforePut();
        const auto path = url.substr(0, url.find('?'));
        const auto part = path.substr(path.rfind('/') + 1);
        const auto key = KRCrypto::hexString(run->upload().wrappedFileKey.value());
        const auto digest = KRCrypto::hexString(KRCrypto::sha256(data));
        EXPECT_EQ(sealed_.try_emplace(key + "/" + part, digest).first->second, digest)
            << "two contents under one key";
        ++puts;
        co_await below_.put(std::move(url), data);
    }

    asio::awaitable<KRCrypto::Bytes> get(std::string url, ByteRange range) override {
        return below_.get(std::move(url), range);
    }

    asio::awaitable<void> getInto(std::string url, std::int64_t first, KRCrypto::MutableBytes into) override {
        if (beforeGet)
            beforeGet(first);
        return below_.getInto(std::move(url), first, into);
    }

    KeptRun* run = nullptr;
    std::function<void()> beforePut;
    std::function<void(std::int64_t)> beforeGet;
    int puts = 0;

private:
    ForegroundBlobTransport below_;
    std::map<std::string, std::string> sealed_;
};

/// A signed-in device with an index, against a service with small chunks.
class JobsFixture : public testing::Test {
protected:
    JobsFixture() {
        context_.api = device_.api();
        context_.index = index_;
        context_.transport = transport_;
        context_.masterKey = [this]() -> asio::awaitable<std::shared_ptr<const KRCrypto::MasterKey>> {
            co_return masterKey_;
        };
        context_.deviceName = []() -> asio::awaitable<std::string> { co_return "Anna's laptop"; };
        context_.clock = service_.clock;
        context_.chunkSize = jobChunk;
    }

    static std::string content(std::size_t size, int seed = 0) {
        std::string bytes(size, '\0');
        for (std::size_t i = 0; i < size; ++i)
            bytes[i] = static_cast<char>((i * 31 + static_cast<std::size_t>(seed) * 17 + i / 251) % 256);
        return bytes;
    }

    std::filesystem::path write(const std::string& name, const std::string& bytes) {
        writeFile(folder_ / name, bytes);
        return folder_ / name;
    }

    static std::string read(const std::filesystem::path& file) {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    UploadJob uploadOf(const std::filesystem::path& source, TransferOrigin origin = {}) {
        UploadJob job;
        job.sourcePath = source;
        job.folderId = root_;
        job.name = source.filename();
        job.mime = "text/plain";
        job.clientFileId = "client-" + std::to_string(++jobs_);
        job.origin = std::move(origin);
        return job;
    }

    DownloadJob downloadOf(const RemoteFile& file, const std::filesystem::path& destination) {
        DownloadJob job;
        job.fileId = file.id;
        job.destinationPath = destination;
        return job;
    }

    TransferOutcome::Uploaded upload(KeptRun& run) {
        transport_->run = &run;
        return std::get<TransferOutcome::Uploaded>(device_.run(runner().run(run)));
    }

    TransferOutcome::Uploaded upload(const UploadJob& job) {
        KeptRun run(job);
        return upload(run);
    }

    /// A second version of the file, as another device makes it.
    void uploadElsewhere(const std::string& fileId, const std::string& name, const std::string& bytes) {
        auto theirs = uploadOf(write(name, bytes));
        theirs.fileId = fileId;
        theirs.baseVersion = 1;
        upload(theirs);
    }

    TransferOutcome::Downloaded download(const DownloadJob& job) {
        KeptRun run(job);
        return std::get<TransferOutcome::Downloaded>(device_.run(runner().run(run)));
    }

    /// What the queue makes of what a job throws; none when it succeeds.
    std::optional<TransferRules::RunFailure> failure(KeptRun& run) {
        transport_->run = &run;
        try {
            device_.run(runner().run(run));
        } catch (const std::exception&) {
            return TransferRules::runFailure(std::current_exception(), false);
        }
        return std::nullopt;
    }

    std::optional<TransferRules::RunFailure> failure(const TransferJob& job) {
        KeptRun run(job);
        return failure(run);
    }

    /// Lets a queue run until nothing waits, the outcomes that come of it included.
    static asio::awaitable<void> runOut(std::shared_ptr<TransferQueue> queue) {
        co_await queue->start();
        for (auto stats = co_await queue->stats(); stats.pending + stats.running > 0;
             stats = co_await queue->stats()) {
            co_await systemClock()->sleep(std::chrono::milliseconds(5));
            co_await queue->delivered(); // an outcome may queue something in turn
        }
        co_await queue->stop();
        co_await queue->finished();
    }

    TransferRunner& runner() {
        if (!runner_)
            runner_.emplace(context_);
        return *runner_;
    }

    LocalService service_{[](ServiceSettings& settings) { settings.chunkSize = jobChunk; }};
    TestDevice device_{service_};
    std::string root_ = device_.signUp("ann@example.org").user.rootFolderId;
    std::shared_ptr<const KRCrypto::MasterKey> masterKey_ =
        std::make_shared<const KRCrypto::MasterKey>(KRCrypto::MasterKey::generate());
    TemporaryFolder folder_;
    std::shared_ptr<LocalIndex> index_ = std::make_shared<LocalIndex>(folder_ / "index.sqlite");
    std::shared_ptr<WatchingTransport> transport_ = std::make_shared<WatchingTransport>(device_.api());
    JobContext context_;
    std::optional<TransferRunner> runner_;
    int jobs_ = 0;
};

} // namespace Korvane::Testing
