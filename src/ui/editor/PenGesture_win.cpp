#ifdef _WIN32

#include "editor/PenGesture.h"

#include <windows.h>

#include <cstring>

namespace {

constexpr UINT TabletQuerySystemGestureStatus = 0x02CC; // WM_TABLET_QUERYSYSTEMGESTURESTATUS
constexpr long long TabletDisablePressAndHold = 0x00000001;
constexpr long long TabletDisableFlicks = 0x00010000;

} // namespace

bool answerPenGestureQuery(const char *eventType, void *message, long long *result)
{
    if (!eventType || std::strcmp(eventType, "windows_generic_MSG") != 0 || !message)
        return false;
    const MSG *msg = static_cast<const MSG *>(message);
    if (msg->message != TabletQuerySystemGestureStatus)
        return false;
    if (result)
        *result = TabletDisablePressAndHold | TabletDisableFlicks;
    return true;
}

#endif
