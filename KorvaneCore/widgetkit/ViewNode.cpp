#include "KorvaneCore/widgetkit/ViewNode.hpp"

#include "KorvaneCore/json/KRJSON.hpp"

#include <array>
#include <string_view>
#include <utility>

namespace Korvane {

namespace {

using View = decltype(ViewNode::view);

// In the order of the variant's alternatives.
constexpr std::array<std::string_view, std::variant_size_v<View>> viewNames = {
    "text", "symbol", "image", "stack", "link", "privacySensitive", "backing", "redacted", "redactedImage"};

template <class... Visitors>
struct Overloaded : Visitors... {
    using Visitors::operator()...;
};

std::vector<ViewNode> mapped(const std::vector<ViewNode>& nodes, ViewNode (*transform)(const ViewNode&)) {
    std::vector<ViewNode> result;
    result.reserve(nodes.size());
    for (const auto& node : nodes)
        result.push_back(transform(node));
    return result;
}

/// A copy whose inner nodes are transformed; leaves stay as they are.
ViewNode withTransformedContent(const ViewNode& node, ViewNode (*transform)(const ViewNode&)) {
    ViewNode copy = node;
    std::visit(Overloaded{[&](StackView& stack) { stack.children = mapped(stack.children, transform); },
                          [&](auto& view) {
                              if constexpr (requires { view.content; })
                                  view.content = mapped(view.content, transform);
                          }},
               copy.view);
    return copy;
}

ViewNode blankedOut(const ViewNode& node) {
    return std::visit(
        Overloaded{[](const TextView& text) { return ViewNode{RedactedView{text.font, std::nullopt}}; },
                   [](const SymbolView& symbol) { return ViewNode{RedactedView{symbol.font, symbol.width}}; },
                   [](const ImageView&) { return ViewNode{RedactedImageView{}}; },
                   [&](const auto&) { return withTransformedContent(node, blankedOut); }},
        node.view);
}

void collectTexts(const ViewNode& node, std::vector<std::string>& texts) {
    std::visit(Overloaded{[&](const TextView& text) { texts.push_back(text.text); },
                          [&](const StackView& stack) {
                              for (const auto& child : stack.children)
                                  collectTexts(child, texts);
                          },
                          [&](const auto& view) {
                              if constexpr (requires { view.content; })
                                  for (const auto& child : view.content)
                                      collectTexts(child, texts);
                          }},
               node.view);
}

template <std::size_t... Index>
View decodeView(const boost::json::value& json, std::string_view name, std::index_sequence<Index...>) {
    std::optional<View> view;
    const auto tryOne = [&]<std::size_t I>() {
        if (viewNames[I] == name)
            view = KRJSON::decodeNested<std::variant_alternative_t<I, View>>(json);
    };
    (tryOne.template operator()<Index>(), ...);
    if (!view)
        throw JSONError("unknown view \"" + std::string(name) + "\"");
    return std::move(*view);
}

void requireContent(const ViewNode& node) {
    std::visit(
        [](const auto& view) {
            if constexpr (requires { view.content; })
                if (view.content.size() != 1)
                    throw JSONError("expected one node of content");
        },
        node.view);
}

} // namespace

ViewNode redacted(const ViewNode& node) {
    if (std::holds_alternative<PrivacySensitiveView>(node.view))
        return withTransformedContent(node, blankedOut);
    return withTransformedContent(node, redacted);
}

std::vector<std::string> accessibleTexts(const ViewNode& node) {
    std::vector<std::string> texts;
    collectTexts(node, texts);
    return texts;
}

boost::json::value encodeJSON(const ViewNode& node) {
    boost::json::object object{{"view", viewNames.at(node.view.index())}};
    std::visit(
        [&](const auto& view) {
            auto fields = KRJSON::encode(view);
            for (auto& [key, value] : fields.as_object())
                object.emplace(key, std::move(value));
        },
        node.view);
    return object;
}

void decodeJSON(const boost::json::value& json, ViewNode& node) {
    const auto* object = json.if_object();
    const auto* name = object == nullptr ? nullptr : object->if_contains("view");
    if (name == nullptr || !name->is_string())
        throw JSONError("expected a view");
    node.view = decodeView(json, name->get_string(), std::make_index_sequence<viewNames.size()>());
    requireContent(node);
}

} // namespace Korvane
