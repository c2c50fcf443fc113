#pragma once

#include "KorvaneService/Router.hpp"

/// The endpoints, by subject. All but the storage routes lie below "/v1".
namespace Korvane {

void addAccountRoutes(Router& router);
void addSingleSignOnRoutes(Router& router);
void addPairingRoutes(Router& router);
void addDeviceRoutes(Router& router);
void addFolderRoutes(Router& router);
void addFileRoutes(Router& router);
void addTrashRoutes(Router& router);
void addUploadRoutes(Router& router);
void addChangeRoutes(Router& router);
void addShareRoutes(Router& router);
void addPublicShareRoutes(Router& router);
void addStorageRoutes(Router& router);

} // namespace Korvane
