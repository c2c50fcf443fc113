#include "tests/support/LocalService.hpp"

#include "KRCrypto/Sizes.hpp"

namespace Korvane::Testing {

namespace {

KRCrypto::SecretBytes madeUpKey(std::string_view text) {
    auto key = KRCrypto::SecretBytes::copyOf(text);
    key.resize(KRCrypto::keySize);
    return key;
}

} // namespace

LocalService::LocalService(const std::function<void(ServiceSettings&)>& adjust) {
    settings_.folder = folder_.path();
    settings_.port = 0;
    settings_.clock = clock;
    if (adjust)
        adjust(settings_);
    service_.emplace(settings_);
    settings_.port = service_->port();
}

void LocalService::restart() {
    service_.reset();
    service_.emplace(settings_);
}

KRConfiguration LocalService::configuration() const {
    KRConfiguration configuration;
    configuration.apiBaseURL = KRConfiguration::parseBaseURL(service_->baseURL()).value();
    return configuration;
}

TestDevice::TestDevice(const LocalService& service, std::shared_ptr<HTTPSession> session)
    : keychain_(std::make_shared<FileKeychain>(folder_ / "keychain.json")),
      api_(std::make_shared<APIClient>(context_.get_executor(), service.configuration(), keychain_,
                                       std::move(session), service.clock)) {}

void TestDevice::run(asio::awaitable<void> call) {
    std::exception_ptr error;
    asio::co_spawn(context_, std::move(call), [&](std::exception_ptr thrown) { error = std::move(thrown); });
    finish(error);
}

void TestDevice::finish(const std::exception_ptr& error) {
    context_.restart();
    context_.run();
    if (error)
        std::rethrow_exception(error);
}

AuthResponse TestDevice::signUp(const std::string& email) {
    SignupRequest request;
    request.email = email;
    request.authKey = madeUpKey("password");
    request.recoveryAuthKey = madeUpKey("recovery");
    request.kdfSalt.resize(16);
    request.wrappedMasterKey.resize(61);
    request.wrappedMasterKeyRecovery.resize(61);
    request.deviceName = "test";
    auto response = run(api_->signup(request));
    run(api_->setTokens({response.accessToken, response.refreshToken}));
    return response;
}

AuthResponse TestDevice::signIn(const std::string& email) {
    LoginRequest request;
    request.email = email;
    request.authKey = madeUpKey("password");
    request.deviceName = "test";
    auto response = run(api_->login(request));
    run(api_->setTokens({response.accessToken, response.refreshToken}));
    return response;
}

RemoteFile TestDevice::upload(const std::string& folderId, const std::string& name, const std::string& bytes,
                              std::size_t partSize, const std::string& blobId) {
    const auto count = (bytes.size() + partSize - 1) / partSize;
    const auto created = run(api_->createUpload(
        {blobId, static_cast<std::int64_t>(bytes.size()), static_cast<std::int64_t>(count)}));
    for (const auto& part : created.parts.value()) {
        const auto piece = bytes.substr(static_cast<std::size_t>(part.partNumber - 1) * partSize, partSize);
        run(api_->putPart(part.url, KRCrypto::asBytes(piece)));
    }
    CompleteUploadRequest request;
    request.folderId = folderId;
    request.metaEnc = {1, 2, 3};
    request.nameBlindIndex = name;
    request.wrappedFileKey = KRCrypto::Bytes(61, 7);
    return run(api_->completeUpload(created.uploadId.value(), request));
}

} // namespace Korvane::Testing
