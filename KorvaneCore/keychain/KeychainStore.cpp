#include "KorvaneCore/keychain/KeychainStore.hpp"

namespace Korvane {

std::string_view KeychainStore::name(Key key) noexcept {
    switch (key) {
    case Key::accessToken:
        return "access-token";
    case Key::refreshToken:
        return "refresh-token";
    case Key::masterKey:
        return "master-key";
    }
    return {};
}

} // namespace Korvane
