#pragma once

#include "KorvaneCore/jobs/PartPlan.hpp"
#include "KorvaneCore/jobs/UploadWork.hpp"

#include <optional>
#include <vector>

namespace Korvane {

/// Brings the work's content to the service, part by part. Throws APIError: Expired when the session is over.
class UploadSession {
public:
    /// It outlives this.
    explicit UploadSession(UploadWork& work) : work_(work) {}

    /// Goes on with the session of an earlier run, or begins one. The parts that are still to be sent; none
    /// when the service has the blob. The work has the blob's key from then on. Throws further
    /// TransferQueue::PermanentFailure.
    asio::awaitable<std::optional<PartPlan>> open();

    /// Nothing is sealed with its key any more.
    void forget();

    /// Sends what is missing, once. Parts whose URLs have expired, or that the service lost, are missing
    /// afterwards. Throws further KRCryptoError (FileChangedDuringRead) and what BlobTransport throws.
    asio::awaitable<void> send(PartPlan& plan);

private:
    struct Sending;

    asio::awaitable<std::optional<PartPlan>> resume();
    asio::awaitable<std::optional<PartPlan>> begin();
    asio::awaitable<std::vector<UploadPart>> parts();
    asio::awaitable<void> sendMissing(PartPlan& plan);
    asio::awaitable<void> sendLane(Sending& sending);

    UploadWork& work_;
};

} // namespace Korvane
