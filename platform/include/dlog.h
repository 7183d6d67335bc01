/**
 * @file dlog.h
 * The platform's logging service.
 */
#ifndef DLOG_H
#define DLOG_H

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Writes one log message. May be called on any thread; messages of several threads are never mixed.
 *
 * @param log_id    which log to write to; 0 is the main log
 * @param priority  higher is more urgent; 2 is routine trace, 16 always shows
 * @param tag       short name of the component that logs
 * @param format    printf format of the message, followed by its arguments
 * @return number of bytes written, 0 when the message was filtered out, negative on failure
 */
int __dlog_print(int log_id, int priority, const char *tag, const char *format, ...)
    __attribute__((format(printf, 4, 5)));

#ifdef __cplusplus
}
#endif

#endif
