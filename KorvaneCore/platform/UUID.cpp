#include "KorvaneCore/platform/UUID.hpp"

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

namespace Korvane {

std::string newUUID() {
    // Every value is drawn from the operating system.
    return boost::uuids::to_string(boost::uuids::random_generator_pure()());
}

} // namespace Korvane
