#pragma once

#include "KRCrypto/MasterKey.hpp"
#include "KorvaneCore/api/APIClient.hpp"

#include <optional>
#include <string>

namespace Korvane {

/// Makes a folder of that name, or gives the one that is there already: another device's, or that of an
/// answer which was lost. None when something else has the name. On the caller's executor; `api` and
/// `masterKey` outlive it. Throws APIError, FolderMissing when the parent is gone or in the Trash.
asio::awaitable<std::optional<RemoteFolder>> folderNamed(APIClient& api, const KRCrypto::MasterKey& masterKey,
                                                         std::string name, std::string parentId);

} // namespace Korvane
