#include "KorvaneCore/api/ErrorMapping.hpp"
#include "KorvaneCore/api/JWT.hpp"
#include "KorvaneCore/api/records/Account.hpp"
#include "KorvaneCore/api/records/Changes.hpp"
#include "KorvaneCore/api/records/Pairing.hpp"
#include "KorvaneCore/api/records/Uploads.hpp"
#include "fuzz/KRCrypto/Fuzzing.hpp"

using namespace Korvane;
using KRCrypto::Fuzzing::require;

namespace {

/// What decodes is written as a text that decodes again: to the same record, but for the last digit of a
/// number that is no integer, which Boost.JSON rounds.
template <class Record>
void decode(std::string_view text) {
    try {
        const auto record = KRJSON::read<Record>(text);
        const auto again = KRJSON::read<Record>(KRJSON::write(record));
        if constexpr (!std::is_same_v<Record, JSONValue>)
            require(again == record);
    } catch (const JSONError&) {
        return;
    }
}

} // namespace

// Any bytes as an answer and as a token: JSONError is the only exception that may come out.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto text = KRCrypto::asText({data, size});
    decode<ChangesPage>(text);
    decode<AuthResponse>(text);
    decode<PairPollResponse>(text);
    decode<CreateUploadResponse>(text);
    decode<JSONValue>(text);
    const auto info = ErrorMapping::errorInfo({418, {}, KRCrypto::Bytes(data, data + size)});
    require(!info.errorDescription().empty());
    (void)ErrorMapping::isTokenProblem(info);
    (void)JWT::expiry(text);
    return 0;
}
