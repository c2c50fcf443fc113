#include "KorvaneCore/jobs/UploadSession.hpp"

#include "KRCrypto/ChunkCrypto.hpp"
#include "KorvaneCore/api/APIErrorInfo.hpp"
#include "KorvaneCore/jobs/Both.hpp"
#include "KorvaneCore/jobs/KnownKeys.hpp"
#include "KorvaneCore/platform/Offload.hpp"
#include "KorvaneCore/queue/TransferQueue.hpp"

#include <algorithm>
#include <utility>

namespace Korvane {

namespace ChunkCrypto = KRCrypto::ChunkCrypto;

/// What the lanes of sendMissing share. They run on one strand.
struct UploadSession::Sending {
    PartPlan& plan;
    std::vector<PartPlan::Part> parts;
    std::size_t next = 0;
    std::int64_t progress = 0; ///< plaintext bytes
    bool urlsExpired = false;
};

asio::awaitable<std::optional<PartPlan>> UploadSession::open() {
    auto plan = co_await resume();
    if (plan)
        co_return plan;
    co_return co_await begin();
}

asio::awaitable<void> UploadSession::send(PartPlan& plan) {
    co_await sendMissing(plan);
    plan.update(co_await parts());
}

asio::awaitable<std::optional<PartPlan>> UploadSession::resume() {
    if (!work_.job.uploadId || !work_.job.wrappedFileKey)
        co_return std::nullopt;
    try {
        work_.wrappedKey = *work_.job.wrappedFileKey;
        work_.uploadId = *work_.job.uploadId;
        work_.fileKey = work_.masterKey->unwrapFileKey(work_.wrappedKey);
        co_return PartPlan::resumed(co_await parts(), work_.chunkCount());
    } catch (const APIError& error) {
        if (!error.is<APIError::Expired>() && !error.is<APIError::Decoding>())
            throw;
    }
    forget(); // it is over, or none of this content's
    co_return std::nullopt;
}

void UploadSession::forget() {
    work_.uploadId.clear();
    work_.job.uploadId.reset();
    work_.job.wrappedFileKey.reset();
    work_.save();
}

// A session that the service does not know any more has expired.
asio::awaitable<std::vector<UploadPart>> UploadSession::parts() {
    try {
        co_return (co_await work_.context.api->uploadStatus(work_.uploadId)).parts;
    } catch (const APIError& error) {
        if (error.is<APIError::NotFound>())
            throw APIError(APIError::Expired{});
        throw;
    }
}

// The key is stored before anything is sealed with it: a run that follows seals the same content with it, or
// none.
asio::awaitable<std::optional<PartPlan>> UploadSession::begin() {
    auto answer =
        co_await work_.context.api->createUpload({work_.blobId, work_.encryptedSize(), work_.chunkCount()});
    if (answer.status == "exists") {
        auto key = co_await knownKey(work_.context, *work_.masterKey, work_.blobId, work_.job.fileId,
                                     answer.wrappedFileKey);
        work_.wrappedKey = std::move(key.wrapped);
        work_.job.wrappedFileKey = work_.wrappedKey;
        work_.fileKey = std::move(key.key);
        work_.save();
        co_return std::nullopt;
    }
    if (!answer.uploadId)
        throw TransferQueue::PermanentFailure("upload id missing");
    work_.uploadId = *answer.uploadId;
    work_.fileKey = ChunkCrypto::generateFileKey();
    work_.wrappedKey = work_.masterKey->wrapFileKey(work_.fileKey);
    work_.job.uploadId = work_.uploadId;
    work_.job.wrappedFileKey = work_.wrappedKey;
    work_.save();
    if (!answer.parts)
        answer.parts = co_await parts();
    co_return PartPlan(std::move(*answer.parts), work_.chunkCount());
}

// Two lanes: while one part is on the wire, the next is read and sealed.
asio::awaitable<void> UploadSession::sendMissing(PartPlan& plan) {
    auto missing = plan.missing();
    if (missing.empty())
        co_return;
    Sending sending{plan, std::move(missing), 0, work_.content->stat().size, false};
    for (const auto& part : sending.parts)
        sending.progress -= static_cast<std::int64_t>(work_.content->sizeOf(part.index));
    if (sending.parts.size() == 1)
        co_await sendLane(sending);
    else
        co_await both(sendLane(sending), sendLane(sending));
    co_await offload([this] { work_.content->requireUnchanged(); });
}

asio::awaitable<void> UploadSession::sendLane(Sending& sending) {
    const auto size = work_.content->stat().size;
    KRCrypto::Bytes buffer(static_cast<std::size_t>(std::min(work_.context.chunkSize, size)) +
                           KRCrypto::gcmTagSize);
    while (sending.next < sending.parts.size() && !sending.urlsExpired) {
        const auto part = sending.parts[sending.next++];
        const auto sealed =
            co_await offload([&] { return work_.content->sealed(part.index, work_.fileKey, buffer); });
        try {
            co_await work_.context.transport->put(part.url, sealed);
        } catch (const std::exception& error) {
            const auto* refusal = apiError(error);
            if (refusal != nullptr && (refusal->is<APIError::NotFound>() || refusal->is<APIError::Expired>()))
                throw APIError(APIError::Expired{}); // with its session
            if (refusal == nullptr || !refusal->is<APIError::Forbidden>())
                throw;
            sending.urlsExpired = true; // the next round fetches new ones
            co_return;
        }
        sending.plan.markSent(part.index);
        sending.progress += static_cast<std::int64_t>(work_.content->sizeOf(part.index));
        work_.run.setProgress(sending.progress, size);
    }
}

} // namespace Korvane
