#include "coop/CoopPort.h"

#include "coop/CoopProtocol.h"

namespace coop {

quint16 coopPort()
{
    bool ok = false;
    const int port = qEnvironmentVariableIntValue("PD_COOP_PORT", &ok);
    return ok && port > 0 && port <= 65535 ? quint16(port) : DefaultPort;
}

} // namespace coop
