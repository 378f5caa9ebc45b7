// zeldicom_run_timed: runs one program and reports its wall time, peak
// resident memory and CPU time, measured from just before the process is started to its
// exit (so the measuring shell's own start-up costs are not counted).
//
//   zeldicom_run_timed RESULT_FILE PROGRAM [ARGUMENT...]
//
// RESULT_FILE receives one line: wall microseconds, peak RSS in KiB, exit
// status (128 + signal number when the program was killed), CPU
// microseconds (user + system). The program's
// own exit status is returned as well; 127 when it could not be started.
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

extern char** environ;

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::fprintf(stderr, "usage: zeldicom_run_timed RESULT_FILE PROGRAM [ARGUMENT...]\n");
        return 2;
    }
    timespec start {}, end {};
    clock_gettime(CLOCK_MONOTONIC, &start);
    pid_t child = 0;
    const int spawned = posix_spawnp(&child, argv[2], nullptr, nullptr, argv + 2, environ);
    if (spawned != 0) {
        std::fprintf(stderr, "zeldicom_run_timed: cannot start %s: %s\n", argv[2], std::strerror(spawned));
        return 127;
    }
    int status = 0;
    rusage usage {};
    pid_t waited;
    do {
        waited = wait4(child, &status, 0, &usage);
    } while (waited < 0 && errno == EINTR);
    clock_gettime(CLOCK_MONOTONIC, &end);
    if (waited < 0) {
        std::fprintf(stderr, "zeldicom_run_timed: wait failed: %s\n", std::strerror(errno));
        return 127;
    }
    const int exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    const long long micros =
        (static_cast<long long>(end.tv_sec) - start.tv_sec) * 1000000LL + (end.tv_nsec - start.tv_nsec) / 1000;
    std::FILE* result = std::fopen(argv[1], "w");
    if (!result) {
        std::fprintf(stderr, "zeldicom_run_timed: cannot write %s\n", argv[1]);
        return 127;
    }
    // CPU time of the child (user + system), which waiting on a peer does not count.
    const long long cpuMicros = (static_cast<long long>(usage.ru_utime.tv_sec) + usage.ru_stime.tv_sec) * 1000000LL +
                                usage.ru_utime.tv_usec + usage.ru_stime.tv_usec;
    std::fprintf(result, "%lld %ld %d %lld\n", micros, usage.ru_maxrss, exitStatus, cpuMicros);
    std::fclose(result);
    return exitStatus;
}
