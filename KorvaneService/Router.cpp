#include "KorvaneService/Router.hpp"

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>

#include <span>
#include <utility>

namespace Korvane {

void Router::add(const std::string& method, const std::string& pattern, Access access, Handler handler) {
    std::vector<std::string> segments;
    boost::split(segments, pattern.substr(1), [](char byte) { return byte == '/'; });
    Node* node = &root_;
    for (const auto& segment : segments)
        node = segment.starts_with('{') ? &node->parameters[segment.substr(1, segment.size() - 2)]
                                        : &node->literals[segment];
    node->routes[method] = Route{method + " " + pattern, access, std::move(handler)};
}

// A node without the method is passed over, so that "GET /trash/{id}" does not hide "DELETE /trash/all".
const Router::Node* Router::walk(const Node& node, std::span<const std::string> path, Match& match,
                                 const std::string& method) {
    if (path.empty())
        return node.routes.contains(method) ? &node : nullptr;
    const auto rest = path.subspan(1);
    if (const auto literal = node.literals.find(path.front()); literal != node.literals.end())
        if (const auto* found = walk(literal->second, rest, match, method))
            return found;
    for (const auto& [name, next] : node.parameters)
        if (const auto* found = walk(next, rest, match, method)) {
            match.parameters[name] = path.front();
            return found;
        }
    return nullptr;
}

Router::Match Router::find(const std::string& method, const std::vector<std::string>& path) const {
    Match match;
    const auto* node = walk(root_, path, match, method);
    if (node == nullptr)
        throw Refusal::notFound("no such endpoint");
    match.route = &node->routes.at(method);
    return match;
}

std::string Router::name(const std::string& method, const std::vector<std::string>& path) const {
    Match match;
    const auto* node = walk(root_, path, match, method);
    return node == nullptr ? "" : node->routes.at(method).name;
}

} // namespace Korvane
