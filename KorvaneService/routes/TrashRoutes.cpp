#include "KorvaneService/Tree.hpp"
#include "KorvaneService/routes/Paging.hpp"
#include "KorvaneService/routes/Routes.hpp"

namespace Korvane {

namespace {

Tree treeOf(Exchange& exchange) {
    return {exchange.state, exchange.database, exchange.session};
}

Reply list(Exchange& exchange) {
    return answer(treeOf(exchange).page(std::nullopt, exchange.query("cursor"), limitOf(exchange)));
}

Reply restore(Exchange& exchange) {
    const auto tree = treeOf(exchange);
    const auto& id = exchange.parameter("id");
    TrashRestoreResponse response;
    if (tree.hasFile(id))
        response.file = tree.setFileTrashed(id, false);
    else
        response.folder = tree.setFolderTrashed(id, false);
    return answer(response);
}

Reply purge(Exchange& exchange) {
    treeOf(exchange).purge(exchange.parameter("id"), exchange.discarded);
    return noContent();
}

Reply empty(Exchange& exchange) {
    treeOf(exchange).purgeTrash(exchange.discarded);
    return noContent();
}

} // namespace

void addTrashRoutes(Router& router) {
    using enum Router::Access;
    router.add("GET", "/v1/trash", device, list);
    router.add("POST", "/v1/trash/{id}/restore", device, restore);
    router.add("DELETE", "/v1/trash/{id}", device, purge);
    router.add("DELETE", "/v1/trash", device, empty);
}

} // namespace Korvane
