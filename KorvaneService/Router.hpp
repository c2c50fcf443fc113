#pragma once

#include "KorvaneService/Exchange.hpp"

#include <functional>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace Korvane {

/// From method and path to the handler. Filled once, then read from any thread.
class Router {
public:
    enum class Access {
        open,      ///< anyone
        either,    ///< anyone; whoever sends a token must be signed in with it
        device,    ///< a signed-in device
        signedURL, ///< whoever has the URL; in no transaction
    };
    using Handler = std::function<Reply(Exchange&)>;

    struct Route {
        std::string name; ///< method and pattern: "GET /v1/files/{id}"
        Access access = Access::open;
        Handler handler;
    };

    struct Match {
        const Route* route = nullptr;
        std::map<std::string, std::string> parameters;
    };

    /// `pattern` is a path whose "{name}" segments match any one segment; among patterns that match, the one
    /// with the earlier literal segment wins.
    void add(const std::string& method, const std::string& pattern, Access access, Handler handler);

    /// Throws Refusal (404).
    [[nodiscard]] Match find(const std::string& method, const std::vector<std::string>& path) const;

    /// The route's name; empty for no route.
    [[nodiscard]] std::string name(const std::string& method, const std::vector<std::string>& path) const;

private:
    struct Node {
        std::map<std::string, Node> literals;
        std::map<std::string, Node> parameters; ///< by name
        std::map<std::string, Route> routes;    ///< by method
    };

    static const Node* walk(const Node& node, std::span<const std::string> path, Match& match,
                            const std::string& method);

    Node root_;
};

} // namespace Korvane
