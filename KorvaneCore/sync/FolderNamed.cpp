#include "KorvaneCore/sync/FolderNamed.hpp"

#include "KorvaneCore/platform/UUID.hpp"

#include <algorithm>

namespace Korvane {

asio::awaitable<std::optional<RemoteFolder>> folderNamed(APIClient& api, const KRCrypto::MasterKey& masterKey,
                                                         std::string name, std::string parentId) {
    const auto blindIndex = masterKey.nameBlindIndex(name);
    try {
        co_return co_await api.createFolder(
            {newUUID(), parentId, masterKey.sealMeta(KRCrypto::FolderMeta(name)), blindIndex});
    } catch (const APIError& error) {
        if (!error.is<APIError::NameConflict>())
            throw;
    }
    const auto page = co_await api.allChildren(parentId);
    const auto existing = std::ranges::find_if(
        page.folders, [&](const RemoteFolder& folder) { return folder.nameBlindIndex == blindIndex; });
    co_return existing == page.folders.end() ? std::nullopt : std::optional(*existing);
}

} // namespace Korvane
