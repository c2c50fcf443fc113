#pragma once

#include <boost/describe/class.hpp>
#include <boost/json/value.hpp>

#include <compare>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>

namespace Korvane {

/// Why a transfer exists. In JSON an object whose one key is the case's name: {"camera":{"assetId":"…"}}.
class TransferOrigin {
public:
    /// A file under a sync root.
    struct Sync {
        static constexpr const char* name = "sync";
        std::string rootId;
        std::string relPath; ///< "/"-separated within the root
        auto operator<=>(const Sync&) const = default;
    };

    /// Uploaded or downloaded by hand.
    struct Manual {
        static constexpr const char* name = "manual";
        auto operator<=>(const Manual&) const = default;
    };

    struct Camera {
        static constexpr const char* name = "camera";
        std::string assetId;
        auto operator<=>(const Camera&) const = default;
    };

    struct ShareExtension {
        static constexpr const char* name = "shareExtension";
        auto operator<=>(const ShareExtension&) const = default;
    };

    /// Kept available offline.
    struct Pinned {
        static constexpr const char* name = "pinned";
        auto operator<=>(const Pinned&) const = default;
    };

    /// Fetched to show a preview.
    struct Preview {
        static constexpr const char* name = "preview";
        auto operator<=>(const Preview&) const = default;
    };

    struct FileProvider {
        static constexpr const char* name = "fileProvider";
        auto operator<=>(const FileProvider&) const = default;
    };

    /// A note's draft being saved.
    struct Note {
        static constexpr const char* name = "note";
        std::string draftId;
        auto operator<=>(const Note&) const = default;
    };

    using Case = std::variant<Manual, Sync, Camera, ShareExtension, Pinned, Preview, FileProvider, Note>;

    TransferOrigin() = default; ///< manual

    template <class C>
        requires(!std::is_same_v<C, TransferOrigin> && std::is_constructible_v<Case, C>)
    TransferOrigin(C value) // NOLINT(google-explicit-constructor): an origin is its case
        : value_(std::move(value)) {}

    /// The payload when the origin is of that case, else nullptr.
    template <class C>
    [[nodiscard]] const C* as() const noexcept {
        return std::get_if<C>(&value_);
    }

    [[nodiscard]] const Case& value() const noexcept { return value_; }

    /// Under what newer requests replace those that wait; none where every request stands for itself.
    [[nodiscard]] std::optional<std::string> dedupeKey() const;

    /// Whether the origin names one path, asset or draft, so that two of its transfers must not run at once.
    [[nodiscard]] bool namesOneThing() const noexcept;

    auto operator<=>(const TransferOrigin&) const = default;

private:
    Case value_;
};

BOOST_DESCRIBE_STRUCT(TransferOrigin::Sync, (), (rootId, relPath))
BOOST_DESCRIBE_STRUCT(TransferOrigin::Manual, (), ())
BOOST_DESCRIBE_STRUCT(TransferOrigin::Camera, (), (assetId))
BOOST_DESCRIBE_STRUCT(TransferOrigin::ShareExtension, (), ())
BOOST_DESCRIBE_STRUCT(TransferOrigin::Pinned, (), ())
BOOST_DESCRIBE_STRUCT(TransferOrigin::Preview, (), ())
BOOST_DESCRIBE_STRUCT(TransferOrigin::FileProvider, (), ())
BOOST_DESCRIBE_STRUCT(TransferOrigin::Note, (), (draftId))

[[nodiscard]] boost::json::value encodeJSON(const TransferOrigin& origin);

/// Throws JSONError unless the object has exactly one case's name among its keys.
void decodeJSON(const boost::json::value& json, TransferOrigin& origin);

} // namespace Korvane
