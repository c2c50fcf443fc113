#include "KorvaneCommand/GivenSecret.hpp"

#include "KRCrypto/SecretBytes.hpp"
#include "KorvaneCommand/UsageError.hpp"
#include "KorvaneCore/platform/SecretInput.hpp"

#include <string>

namespace Korvane {

SecretText givenSecret(const std::optional<int>& fd, std::string_view prompt) {
    std::string text = fd ? SecretInput::readLine(*fd) : SecretInput::ask(prompt);
    const SecretText secret{std::string_view(text)};
    KRCrypto::wipe(text);
    return secret;
}

SecretText chosenPassword(const std::optional<int>& fd) {
    auto password = givenSecret(fd, "New password: ");
    if (password.empty())
        throw UsageError("a password is not empty");
    if (!fd && givenSecret(fd, "The same again: ") != password)
        throw UsageError("the passwords differ; nothing was changed");
    return password;
}

} // namespace Korvane
