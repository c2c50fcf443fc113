#pragma once

#include "KRCrypto/SecretBytes.hpp"
#include "KorvaneCore/json/KRJSON.hpp"

#include <cstdio>

namespace Korvane {

/// Prints a record with a secret in it as one line of JSON, of which no copy stays.
template <class Record>
void putSecret(const Record& record) {
    auto text = KRJSON::write(record);
    const KRCrypto::WipedAtEnd wiped(text);
    std::puts(text.c_str());
}

} // namespace Korvane
