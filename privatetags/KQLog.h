// Debug messages of the private tag layer, sent to the system log (ident "KQItem", facility LOCAL3).
#ifndef KQLOG_H
#define KQLOG_H

class KQLog
{
public:
    // Receives every message after formatting; lets tests and tools see what was logged.
    typedef void (*Observer)(const char* text);

    // Formats one message and sends it at debug priority, opening and closing the log around it.
    static void message(const char* format, ...)
#if defined(__GNUC__)
        __attribute__((format(printf, 1, 2)))
#endif
        ;

    // Installs an observer (null removes it); returns the previous one.
    static Observer setObserver(Observer observer);
};

#endif
