#include "KorvaneCore/sharing/ShareLayout.hpp"

#include "KRCrypto/DropCrypto.hpp"
#include "KorvaneCore/jobs/FileNames.hpp"
#include "KorvaneCore/sharing/ShareError.hpp"

#include <map>
#include <set>

namespace Korvane {

namespace {

void require(bool condition) {
    if (!condition)
        throw ShareError(ShareError::Kind::altered);
}

std::string freeName(const std::string& wanted, std::set<std::string>& taken) {
    const auto clean = KRCrypto::DropCrypto::sanitizeName(wanted);
    auto name = clean;
    for (std::int64_t n = 1; !taken.insert(name).second; ++n)
        name = FileNames::numbered(clean, n);
    return name;
}

} // namespace

std::vector<ShareTarget> shareLayout(std::span<const ShareNode> nodes) {
    std::map<std::string, std::vector<std::size_t>> children; // by parent; the root's is ""
    std::set<std::string> ids;
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        require(!nodes[i].entryId.empty() && ids.insert(nodes[i].entryId).second);
        children[nodes[i].parentEntryId.value_or("")].push_back(i);
    }
    require(children[""].size() == 1);

    std::vector<ShareTarget> targets;
    const auto add = [&](const std::string& parentId, const std::filesystem::path& folder) {
        std::set<std::string> taken;
        for (const auto child : children[parentId])
            targets.push_back({child, folder / freeName(nodes[child].name, taken)});
    };
    add("", {});
    for (std::size_t next = 0; next < targets.size(); ++next) {
        const auto& node = nodes[targets[next].node];
        const auto path = targets[next].path;
        require(node.isFolder || !children.contains(node.entryId));
        if (node.isFolder)
            add(node.entryId, path);
    }
    require(targets.size() == nodes.size()); // nothing hangs in the air or in a circle
    return targets;
}

} // namespace Korvane
