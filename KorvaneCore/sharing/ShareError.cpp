#include "KorvaneCore/sharing/ShareError.hpp"

namespace Korvane {

const char* ShareError::what() const noexcept {
    switch (kind_) {
    case Kind::notALink:
        return "This is no link to a share.";
    case Kind::noKey:
        return "The link has no key: the part after \"#\" is missing.";
    case Kind::unknown:
        return "There is no such share.";
    case Kind::revoked:
        return "This share was revoked.";
    case Kind::expired:
        return "This share has expired.";
    case Kind::gone:
        return "What was shared is no longer there.";
    case Kind::passwordNeeded:
        return "This link needs a password.";
    case Kind::wrongPassword:
        return "The password is wrong, or the link is not complete.";
    case Kind::wrongKey:
        return "The link's key does not open what it leads to: the link is not complete, or something was "
               "altered.";
    case Kind::altered:
        return "What the link leads to was altered; nothing is taken from it from there on.";
    case Kind::wholeAccount:
        return "The account as a whole cannot be shared. Choose a folder or file in it.";
    case Kind::pastExpiry:
        return "The time of expiry has passed already.";
    case Kind::badExpiry:
        return "The expiry is a time like 30m, 12h, 7d or 2w, a date like 2026-12-24, or an ISO-8601 time.";
    }
    return "The share failed.";
}

} // namespace Korvane
