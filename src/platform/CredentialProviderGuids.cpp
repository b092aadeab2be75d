// The one translation unit that defines the interface ids declared with DEFINE_GUID.
#include <initguid.h>

#include "platform/CredentialProviderApi.h"
