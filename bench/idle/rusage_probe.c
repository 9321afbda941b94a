/* Loaded into the widget by idle.py (LD_PRELOAD) so that its wake-ups are counted exactly: on
 * SIGRTMIN+5 it appends the process's own resource use to the file named by
 * TOVRIN_RUSAGE_FILE, as "voluntary-switches user-microseconds system-microseconds". The
 * kernel's figures for a process include every thread it ever had, the short-lived ones that a
 * look at /proc misses among them. */
#define _GNU_SOURCE
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <unistd.h>

static int out = -1;

static char *put_number(char *at, long long value) {
    char digits[24];
    int count = 0;
    do {
        digits[count++] = (char)('0' + value % 10);
        value /= 10;
    } while (value > 0);
    while (count > 0) {
        *at++ = digits[--count];
    }
    return at;
}

static void on_signal(int number) {
    (void)number;
    struct rusage use;
    if (out < 0 || getrusage(RUSAGE_SELF, &use) != 0) {
        return;
    }
    char line[96];
    char *at = put_number(line, use.ru_nvcsw);
    *at++ = ' ';
    at = put_number(at, (long long)use.ru_utime.tv_sec * 1000000 + use.ru_utime.tv_usec);
    *at++ = ' ';
    at = put_number(at, (long long)use.ru_stime.tv_sec * 1000000 + use.ru_stime.tv_usec);
    *at++ = '\n';
    (void)!write(out, line, (size_t)(at - line));
}

__attribute__((constructor)) static void start(void) {
    const char *path = getenv("TOVRIN_RUSAGE_FILE");
    /* Before the program reads its environment: the tools it runs do not load this. */
    unsetenv("LD_PRELOAD");
    if (path == NULL) {
        return;
    }
    out = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    unsetenv("TOVRIN_RUSAGE_FILE");
    struct sigaction action = {0};
    action.sa_handler = on_signal;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(SIGRTMIN + 5, &action, NULL);
}
