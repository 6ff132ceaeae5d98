#pragma once

#include <QtGlobal>

namespace coop {

// The TCP port co-op sessions host and join on: DefaultPort, unless the
// environment variable PD_COOP_PORT holds a port number (1..65535), which lets
// a test run its own OBS on a free port beside a real session.
quint16 coopPort();

} // namespace coop
