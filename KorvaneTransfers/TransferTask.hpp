#pragma once

#include "KorvaneCore/background/TransferMessages.hpp"
#include "KorvaneCore/http/HTTPSession.hpp"

#include <memory>

/// Carries out one order.
namespace Korvane::TransferTask {

/// The longest body that is told in a result, in bytes: what a storage says about a part, or an error.
inline constexpr std::size_t maxBody = 64 << 10;

/// Suspends until the answer is here; what goes wrong is in the result. A download that has no file to show
/// for leaves none behind. Throws boost::system::system_error (operation_aborted) when cancelled.
asio::awaitable<TransferMessages::TaskResult> run(std::shared_ptr<HTTPSession> session,
                                                  TransferMessages::TaskOrder order);

} // namespace Korvane::TransferTask
