#include "KorvaneCore/jobs/UploadRunner.hpp"

#include "KRCrypto/ChunkCrypto.hpp"
#include "KRCrypto/KRCryptoError.hpp"
#include "KorvaneCore/jobs/UploadSource.hpp"
#include "KorvaneCore/media/Thumbnail.hpp"
#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneCore/platform/Offload.hpp"

#include <utility>

namespace Korvane {

using KRCrypto::KRCryptoError;

namespace {

constexpr int mostRounds = 6;
constexpr std::int64_t largestPicture = std::int64_t{256} << 20;
constexpr std::size_t largestThumbnail = std::size_t{1} << 20;

} // namespace

UploadRunner::UploadRunner(const JobContext& context, TransferRun& run, UploadState& uploads, UploadJob job)
    : uploads_(uploads),
      work_{context, run, std::move(job), {}, {}, {}, {}, {}, {}},
      session_(work_),
      registration_(work_) {}

asio::awaitable<TransferOutcome::Uploaded> UploadRunner::upload() {
    work_.masterKey = co_await work_.context.masterKey();
    co_await UploadSource(work_, uploads_).find();
    RemoteFile file;
    try {
        file = co_await store();
    } catch (const KRCryptoError&) {
        uploads_.forget(work_.job.sourcePath); // it may have changed under the same looks
        throw;
    }
    uploads_.forget(work_.job.sourcePath);
    work_.context.index->apply(file, *work_.masterKey);
    co_await addThumbnail(file);
    auto done = work_.job;
    done.name = registration_.name();
    co_return TransferOutcome::Uploaded{std::move(done), file};
}

// Of several uploads of one content the first sends it; the others then find it at the service. A session
// that ends under way is begun anew, once.
asio::awaitable<RemoteFile> UploadRunner::store() {
    const auto turn = co_await uploads_.turns.take(work_.blobId);
    try {
        co_return co_await storeOnce();
    } catch (const APIError& error) {
        if (!error.is<APIError::Expired>())
            throw;
    }
    session_.forget();
    co_return co_await storeOnce();
}

asio::awaitable<RemoteFile> UploadRunner::storeOnce() {
    auto plan = co_await session_.open();
    if (!plan) // the service has the blob
        co_return co_await registration_.carryOut();
    co_return co_await sendAndRegister(std::move(*plan));
}

asio::awaitable<RemoteFile> UploadRunner::sendAndRegister(PartPlan plan) {
    for (int round = 0; round < mostRounds; ++round) {
        co_await session_.send(plan);
        if (!plan.missing().empty())
            continue;
        try {
            co_return co_await registration_.carryOut();
        } catch (const APIError& error) {
            const auto* missing = error.as<APIError::PartsMissing>();
            if (missing == nullptr)
                throw;
            plan.markRefused(missing->parts);
        }
    }
    throw APIError(APIError::Transport{"upload did not converge", true});
}

// A file is complete without its thumbnail, so what goes wrong here is logged and the upload succeeds.
asio::awaitable<void> UploadRunner::addThumbnail(const RemoteFile& file) {
    if (!work_.job.mime.value_or("").starts_with("image/"))
        co_return;
    if (work_.content->stat().size > largestPicture)
        co_return Log::info("transfer", "no thumbnail: the picture is too large");
    try {
        const auto sealed = co_await offload([this] {
            const auto picture = makeThumbnail(work_.job.sourcePath);
            work_.content->requireUnchanged();
            return KRCrypto::ChunkCrypto::sealThumbnail(work_.fileKey, KRCrypto::asBytes(picture));
        });
        if (sealed.size() > largestThumbnail)
            co_return Log::info("transfer", "no thumbnail: it would be too large itself");
        co_await work_.context.api->uploadThumbnail(file.id, sealed);
        work_.context.index->setHasThumbnail(file.id, true);
    } catch (const std::exception& error) {
        Log::warning("transfer", std::string("no thumbnail: ") + error.what());
    }
}

} // namespace Korvane
