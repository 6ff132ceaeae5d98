#pragma once

// Answers the Windows pen-gesture query sent to a top-level window so that
// press-and-hold (right-click emulation) and flicks stay off over the canvas.
// True when the message was that query; *result (if given) then holds the
// answer. Elsewhere there is no such message and nothing is answered.
#ifdef _WIN32
bool answerPenGestureQuery(const char *eventType, void *message, long long *result);
#else
inline bool answerPenGestureQuery(const char *, void *, long long *)
{
    return false;
}
#endif
