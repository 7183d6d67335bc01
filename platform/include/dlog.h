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
 * Writes one log message. May be called on any thread; messages of different threads never mix.
 *
 * @param log_id    which log to write to; 0 is the main log
 * @param priority  a higher value is more urgent; 2 is routine trace, 16 is always shown
 * @param tag       short name of the calling component
 * @param format    printf format of the message, followed by its arguments
 * @return number of bytes written, 0 if the message is filtered out, negative on failure
 */
int __dlog_print(int log_id, int priority, const char *tag, const char *format, ...)
    __attribute__((format(printf, 4, 5)));

#ifdef __cplusplus
}
#endif

#endif
