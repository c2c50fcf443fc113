#pragma once

// The template of APIClient.hpp; included by its sources only.

#include "KorvaneCore/api/APIClient.hpp"

#include <type_traits>
#include <typeinfo>

namespace Korvane {

template <class Record>
asio::awaitable<Record> APIClient::call(APICall call) {
    if constexpr (std::is_void_v<Record>) {
        (void)co_await perform(std::move(call), "answer");
    } else {
        auto answer = co_await perform(std::move(call), KRJSON::Detail::recordName(typeid(Record).name()));
        const KRCrypto::WipedAtEnd wiped(answer.body);
        try {
            co_return KRJSON::read<Record>(KRCrypto::asText(answer.body));
        } catch (const JSONError& error) {
            throw APIError(APIError::Decoding{error.what()});
        }
    }
}

} // namespace Korvane
