/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Run a command and let one of its system calls fail, in itself alone and not in its children:
 *
 *     fail_call LIST CALL N ERROR COMMAND...
 *
 * CALL is a system call's number; the Nth of them fails, counted from 1 behind the loader's own.
 * ERROR is what it returns instead of being made: an errno; 0 makes it a short one, of a single
 * byte or entry; with a minus, all later ones fail too. With N 0 nothing fails, and LIST is filled
 * with a line for each call: its number, its name and the errors of its kind. The status is the
 * command's, or 128 and the signal that it died of.
 */
#include <elf.h>
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#define CALL(name, ...)      \
    {                        \
        SYS_##name, #name, { \
            __VA_ARGS__      \
        }                    \
    }
#define LOOKUP EACCES, ENOENT, ELOOP, ENAMETOOLONG, ENOMEM, EIO, EINTR
static const struct {
    unsigned long long number;
    const char *name;
    int errors[12];
} kinds[] = {
    CALL(openat, LOOKUP, EMFILE, ENFILE, ENOTDIR),
    CALL(openat2, LOOKUP, EMFILE, ENFILE, ENOSYS, EPERM),
    CALL(newfstatat, LOOKUP),
    CALL(statx, LOOKUP),
    CALL(fstat, EIO, ENOMEM),
    CALL(faccessat2, LOOKUP),
    CALL(access, LOOKUP),
    CALL(chdir, EACCES, ENOENT, ELOOP, EIO),
    CALL(getdents64, EIO, ENOMEM, EINTR, ENOENT, -EIO),
    CALL(read, EIO, EINTR, -EIO),
    CALL(pread64, EIO, EINTR, -EIO),
    CALL(write, EIO, ENOSPC, EFBIG, EPIPE, EINTR, EAGAIN, -EIO),
    CALL(lseek, ESPIPE, EINVAL),
    CALL(close, EIO, EINTR, EDQUOT),
    CALL(fcntl, EMFILE, EINVAL),
    CALL(fstatfs, EIO, ENOMEM, ENOSYS, EINTR),
    CALL(ioctl, EIO, EINVAL),
    CALL(poll, ENOMEM, EINTR),
    CALL(mmap, ENOMEM),
    CALL(mremap, ENOMEM),
    CALL(brk, ENOMEM),
    CALL(munmap, ENOMEM),
    CALL(mprotect, ENOMEM),
    CALL(madvise, EAGAIN, ENOMEM),
    CALL(pipe2, EMFILE, ENFILE),
    CALL(clone3, EAGAIN, ENOMEM),
    CALL(clone, EAGAIN, ENOMEM),
    CALL(vfork, EAGAIN, ENOMEM),
    CALL(wait4, ECHILD, EINTR),
    CALL(close_range, ENOSYS, EINVAL),
    CALL(getrandom, ENOSYS, EINTR),
    CALL(socket, EMFILE, EACCES),
    CALL(connect, ECONNREFUSED, EINTR),
    CALL(rt_sigaction, EINVAL),
    CALL(rt_sigprocmask, EINVAL),
    CALL(prlimit64, EPERM),
};

/* Where the kernel put the loader: what it calls is no call of the run. */
static unsigned long long loader_of(pid_t pid) {
    char name[64];
    Elf64_auxv_t each = {0};
    snprintf(name, sizeof name, "/proc/%d/auxv", pid);
    FILE *in = fopen(name, "r");
    while (in != NULL && fread(&each, sizeof each, 1, in) == 1 && each.a_type != AT_BASE) {
    }
    in != NULL ? fclose(in) : 0;
    return each.a_un.a_val;
}

static void list_call(FILE *list, unsigned long long number) {
    size_t i = 0;
    while (i < sizeof kinds / sizeof kinds[0] && kinds[i].number != number) {
        i++;
    }
    if (i == sizeof kinds / sizeof kinds[0]) {
        fprintf(list, "%llu other\n", number);
        return;
    }
    fprintf(list, "%llu %s", number, kinds[i].name);
    for (const int *error = kinds[i].errors; *error != 0; error++) {
        fprintf(list, " %d", *error);
    }
    const int has_count = number == SYS_read || number == SYS_write || number == SYS_getdents64;
    fprintf(list, has_count ? " 0\n" : "\n");
}

/* At the door of a call: make it a short one, or one that fails. */
static void change_call(pid_t pid, int error, struct user_regs_struct regs) {
    if (regs.orig_rax == SYS_brk) {
        regs.rdi = 0; /* it fails by telling the break as it is */
    } else if (error != 0 && regs.orig_rax != SYS_close) { /* a failed close closes all the same */
        regs.orig_rax = (unsigned long long)-1;
    } else if (error == 0) {
        regs.rdx = regs.orig_rax == SYS_getdents64 ? 280 : 1; /* the longest entry fits */
    }
    ptrace(PTRACE_SETREGS, pid, 0, &regs);
}

/* Behind it: the registers as they were, and the result. */
static void finish_call(pid_t pid, int error, struct user_regs_struct before) {
    struct user_regs_struct regs;
    ptrace(PTRACE_GETREGS, pid, 0, &regs);
    const int told = error == 0 || before.orig_rax == SYS_brk;
    before.rax = told ? regs.rax : (unsigned long long)-(long long)abs(error);
    ptrace(PTRACE_SETREGS, pid, 0, &before);
}

/* Let a stopped process run until its next call begins or ends. Returns false at its end. */
static int go_on(pid_t pid, int *status) {
    int sent = 0;
    do {
        ptrace(PTRACE_SYSCALL, pid, 0, sent);
        if (waitpid(pid, status, 0) < 0 || WIFEXITED(*status) || WIFSIGNALED(*status)) {
            return 0;
        }
        sent = WSTOPSIG(*status);
    } while (sent != (SIGTRAP | 0x80));
    return 1;
}

int main(int argc, char **argv) {
    const unsigned long long call = argc > 5 ? strtoull(argv[2], NULL, 10) : 0;
    const long wanted = argc > 5 ? atol(argv[3]) : -1;
    const int error = argc > 5 ? atoi(argv[4]) : 0;
    FILE *list = wanted == 0 ? fopen(argv[1], "w") : NULL;
    const pid_t pid = wanted < 0 ? -1 : fork();
    if (pid == 0) {
        ptrace(PTRACE_TRACEME, 0, 0, 0);
        execv(argv[5], argv + 5);
        _exit(127);
    }
    int status;
    if (pid < 0 || waitpid(pid, &status, 0) < 0 || !WIFSTOPPED(status)) {
        return 126;
    }
    ptrace(PTRACE_SETOPTIONS, pid, 0, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    const unsigned long long loader = loader_of(pid);
    int is_run = 0;
    for (long count = 0; go_on(pid, &status);) {
        struct user_regs_struct regs;
        ptrace(PTRACE_GETREGS, pid, 0, &regs);
        is_run |= regs.rip - loader > 0x100000;
        count += is_run && regs.orig_rax == call;
        const int fails = is_run && regs.orig_rax == call && wanted > 0 &&
                          (error < 0 ? count >= wanted : count == wanted);
        if (is_run && list != NULL) {
            list_call(list, regs.orig_rax);
        }
        if (fails) {
            change_call(pid, error, regs);
        }
        if (!go_on(pid, &status)) {
            break;
        }
        if (fails) {
            finish_call(pid, error, regs);
        }
    }
    list != NULL ? fclose(list) : 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
