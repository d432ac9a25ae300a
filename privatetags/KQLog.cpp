#include "privatetags/KQLog.h"

#include <cstdarg>
#include <cstdio>
#include <syslog.h>

namespace {

KQLog::Observer currentObserver = nullptr;

} // namespace

void KQLog::message(const char* format, ...)
{
    char text[1024];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof(text), format, args);
    va_end(args);

    openlog("KQItem", LOG_PID, LOG_LOCAL3);
    syslog(LOG_DEBUG, "%s", text);
    closelog();

    if (currentObserver)
        currentObserver(text);
}

KQLog::Observer KQLog::setObserver(Observer observer)
{
    Observer previous = currentObserver;
    currentObserver = observer;
    return previous;
}
