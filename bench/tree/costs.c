// SPDX-License-Identifier: Apache-2.0
// Runs commands in turns and tells what each run cost.
//
//     costs ROUNDS COMMAND [ARGUMENT...] [-- COMMAND ...]
//
// Standard output of the commands goes nowhere. One line a run, of the first command, the second and
// so on: processor time in microseconds, of the command and of the children that it waited for, and
// the most memory that one of them had in kilobytes. A small program of its own, because a child
// counts the memory of the process that made it.
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

enum { MAX_COMMANDS = 16 };

static long microseconds(struct timeval t) {
    return 1000000L * t.tv_sec + t.tv_usec;
}

static void run(char **command) {
    const pid_t child = vfork();
    if (child == 0) {
        const int nowhere = open("/dev/null", O_WRONLY);
        dup2(nowhere, STDOUT_FILENO);
        close(nowhere);
        execvp(command[0], command);
        _exit(127);
    }
    int status;
    struct rusage used;
    if (wait4(child, &status, 0, &used) != child || !WIFEXITED(status) || WEXITSTATUS(status) > 1) {
        fprintf(stderr, "costs: %s failed\n", command[0]);
        exit(1);
    }
    printf("%ld %ld\n", microseconds(used.ru_utime) + microseconds(used.ru_stime), used.ru_maxrss);
}

int main(int argc, char **argv) {
    char **commands[MAX_COMMANDS];
    int count = 0;
    for (int i = 2; i < argc && count < MAX_COMMANDS; i++) {
        commands[count++] = &argv[i];
        while (i < argc && strcmp(argv[i], "--") != 0) {
            i++;
        }
        argv[i] = NULL;
    }
    if (count == 0) {
        fprintf(stderr, "usage: costs ROUNDS COMMAND [ARGUMENT...] [-- COMMAND ...]\n");
        return 2;
    }
    for (int rounds = atoi(argv[1]); rounds > 0; rounds--) {
        for (int i = 0; i < count; i++) {
            run(commands[i]);
        }
    }
    return 0;
}
