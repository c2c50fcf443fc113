#pragma once

#include <boost/describe/class.hpp>
#include <boost/describe/enum.hpp>
#include <boost/json/value.hpp>

#include <optional>
#include <string>
#include <variant>
#include <vector>

/// What a widget shows, as plain values: the extension builds a tree of these, the host lays it out and draws
/// it. Lengths are in points. Strings are UTF-8.
namespace Korvane {

enum class FontRole { title, caption, footnote };
BOOST_DESCRIBE_ENUM(FontRole, title, caption, footnote)

enum class ForegroundStyle { primary, secondary, white };
BOOST_DESCRIBE_ENUM(ForegroundStyle, primary, secondary, white)

/// Where the children of a stack stand across its axis; in a depth stack, where all but the first stand.
enum class Alignment { leading, center, bottomLeading };
BOOST_DESCRIBE_ENUM(Alignment, leading, center, bottomLeading)

/// A depth stack draws its children over each other, the first one at the back and filling it.
enum class Axis { vertical, horizontal, depth };
BOOST_DESCRIBE_ENUM(Axis, vertical, horizontal, depth)

struct ViewNode;

/// One line of text, cut with an ellipsis where it does not fit; or, when it wraps, as many centred lines as
/// needed.
struct TextView {
    std::string text;
    FontRole font = FontRole::caption;
    bool bold = false;
    ForegroundStyle style = ForegroundStyle::primary;
    bool wraps = false;
    bool operator==(const TextView&) const = default;
};
BOOST_DESCRIBE_STRUCT(TextView, (), (text, font, bold, style, wraps))

/// A monochrome pictogram of the text's height, centred in `width` when one is given.
struct SymbolView {
    std::string name;
    FontRole font = FontRole::caption;
    ForegroundStyle style = ForegroundStyle::primary;
    std::optional<double> width;
    bool operator==(const SymbolView&) const = default;
};
BOOST_DESCRIBE_STRUCT(SymbolView, (), (name, font, style, width))

/// A picture scaled to fill all the room there is, cut evenly where its shape differs.
struct ImageView {
    std::string file; ///< absolute path
    bool operator==(const ImageView&) const = default;
};
BOOST_DESCRIBE_STRUCT(ImageView, (), (file))

struct StackView {
    Axis axis = Axis::vertical;
    Alignment alignment = Alignment::center;
    double spacing = 0;
    bool fillsWidth = false;
    std::vector<ViewNode> children;
    bool operator==(const StackView&) const;
};
BOOST_DESCRIBE_STRUCT(StackView, (), (axis, alignment, spacing, fillsWidth, children))

/// `content` holds one node, here and below.
struct LinkView {
    std::string url;
    std::vector<ViewNode> content;
    bool operator==(const LinkView&) const;
};
BOOST_DESCRIBE_STRUCT(LinkView, (), (url, content))

/// Content that a locked screen must not show.
struct PrivacySensitiveView {
    std::vector<ViewNode> content;
    bool operator==(const PrivacySensitiveView&) const;
};
BOOST_DESCRIBE_STRUCT(PrivacySensitiveView, (), (content))

/// Content on a rounded black backing, so it stays legible over a picture.
struct BackingView {
    double opacity = 0.5; ///< of the black, 0 to 1
    std::vector<ViewNode> content;
    bool operator==(const BackingView&) const;
};
BOOST_DESCRIBE_STRUCT(BackingView, (), (opacity, content))

/// What redaction leaves of a text or symbol: a bar of its height that tells nothing of its content.
struct RedactedView {
    FontRole font = FontRole::caption;
    std::optional<double> width; ///< in points; none for a share of the room
    bool operator==(const RedactedView&) const = default;
};
BOOST_DESCRIBE_STRUCT(RedactedView, (), (font, width))

/// What redaction leaves of a picture: an even surface that fills its room.
struct RedactedImageView {
    bool operator==(const RedactedImageView&) const = default;
};
BOOST_DESCRIBE_STRUCT(RedactedImageView, (), ())

struct ViewNode {
    std::variant<TextView, SymbolView, ImageView, StackView, LinkView, PrivacySensitiveView, BackingView,
                 RedactedView, RedactedImageView>
        view;
    bool operator==(const ViewNode&) const = default;
};

inline bool StackView::operator==(const StackView&) const = default;
inline bool LinkView::operator==(const LinkView&) const = default;
inline bool PrivacySensitiveView::operator==(const PrivacySensitiveView&) const = default;
inline bool BackingView::operator==(const BackingView&) const = default;

/// The tree as a locked screen shows it: nothing inside a PrivacySensitiveView is left but its shape. Links
/// stay; they name items by identifier only.
[[nodiscard]] ViewNode redacted(const ViewNode& node);

/// The texts of the tree in reading order, for screen readers.
[[nodiscard]] std::vector<std::string> accessibleTexts(const ViewNode& node);

/// {"view": "text", …}: the fields of the view beside its kind. Decoding throws JSONError.
[[nodiscard]] boost::json::value encodeJSON(const ViewNode& node);
void decodeJSON(const boost::json::value& json, ViewNode& node);

} // namespace Korvane
