#include "KorvaneCore/api/APIErrorInfo.hpp"

#include "KorvaneCore/config/Text.hpp"

#include <unicode/locid.h>
#include <unicode/unistr.h>

#include <utility>

namespace Korvane {

namespace {

std::string withCapital(std::string_view sentence) {
    auto text = icu::UnicodeString::fromUTF8(
        icu::StringPiece(sentence.data(), static_cast<int32_t>(sentence.size())));
    const auto first = text.moveIndex32(0, 1);
    text.replace(0, first, icu::UnicodeString(text, 0, first).toUpper(icu::Locale::getRoot()));
    std::string utf8;
    return text.toUTF8String(utf8);
}

std::optional<std::string> serverSentence(const std::optional<std::string>& message) {
    const auto text = trimmed(message ? *message : std::string_view());
    if (text.empty())
        return std::nullopt;
    auto sentence = withCapital(text);
    if (std::string_view(".!?").find(sentence.back()) == std::string_view::npos)
        sentence += '.';
    return sentence;
}

std::string describe(const APIErrorInfo& info) {
    const bool clientKnowsBetter =
        info.error.is<APIError::QuotaExceeded>() || info.error.is<APIError::TransferLimitReached>();
    const bool serverMayExplain = info.status == 400 || info.status == 409 || info.status == 413;
    if (!clientKnowsBetter && serverMayExplain)
        if (auto sentence = serverSentence(info.serverMessage))
            return *std::move(sentence);
    return info.error.errorDescription();
}

} // namespace

APIErrorInfo::APIErrorInfo(APIError mapped, int httpStatus, std::string machineCode,
                           std::optional<std::string> message, std::optional<Details> furtherDetails)
    : error(std::move(mapped)), // NOLINT(bugprone-throw-keyword-missing): a member

      status(httpStatus),
      code(std::move(machineCode)),
      serverMessage(std::move(message)),
      details(std::move(furtherDetails)),
      description_(describe(*this)) {}

std::optional<std::string> APIErrorInfo::reason() const {
    if (!details)
        return std::nullopt;
    const auto found = details->find("reason");
    const auto* text = found == details->end() ? nullptr : found->second.as<std::string>();
    return text == nullptr ? std::nullopt : std::optional(*text);
}

const APIError* apiError(const std::exception& error) noexcept {
    if (const auto* info = dynamic_cast<const APIErrorInfo*>(&error))
        return &info->error;
    return dynamic_cast<const APIError*>(&error);
}

} // namespace Korvane
