#include "selfregisteringservice.h"

#include "toolframework/platformservices.h"

namespace
{
class CSelfRegisteringService : public ISelfRegisteringService
{
public:
	int Answer() override { return 4217; }
};
CSelfRegisteringService s_Service;
} // namespace

EXPOSE_PLATFORM_INTERFACE_GLOBALVAR(CSelfRegisteringService, ISelfRegisteringService, SELFREGISTERING_SERVICE_VERSION, s_Service);
