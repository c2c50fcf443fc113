#include "KorvaneService/Tree.hpp"
#include "KorvaneService/routes/Paging.hpp"
#include "KorvaneService/routes/Routes.hpp"

namespace Korvane {

namespace {

Tree treeOf(Exchange& exchange) {
    return {exchange.state, exchange.database, exchange.session};
}

Reply get(Exchange& exchange) {
    return answer(FolderEnvelope{treeOf(exchange).folder(exchange.parameter("id"))});
}

Reply children(Exchange& exchange) {
    const auto tree = treeOf(exchange);
    const auto folder = tree.folder(exchange.parameter("id"));
    return answer(tree.page(folder.id, exchange.query("cursor"), limitOf(exchange)));
}

Reply create(Exchange& exchange) {
    return answer(FolderEnvelope{treeOf(exchange).createFolder(exchange.body<CreateFolderRequest>())});
}

Reply update(Exchange& exchange) {
    return answer(FolderEnvelope{
        treeOf(exchange).updateFolder(exchange.parameter("id"), exchange.body<UpdateFolderRequest>())});
}

template <bool Trashed>
Reply setTrashed(Exchange& exchange) {
    return answer(FolderEnvelope{treeOf(exchange).setFolderTrashed(exchange.parameter("id"), Trashed)});
}

} // namespace

void addFolderRoutes(Router& router) {
    using enum Router::Access;
    router.add("GET", "/v1/folders/{id}", device, get);
    router.add("GET", "/v1/folders/{id}/children", device, children);
    router.add("POST", "/v1/folders", device, create);
    router.add("PATCH", "/v1/folders/{id}", device, update);
    router.add("DELETE", "/v1/folders/{id}", device, setTrashed<true>);
    router.add("POST", "/v1/folders/{id}/restore", device, setTrashed<false>);
}

} // namespace Korvane
