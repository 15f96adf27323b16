/* SPDX-License-Identifier: Apache-2.0 */
/* Four processes write one log; then every record is counted and looked over: shared_log LOG */
#include <libvxcore/vxlb_log.h>

#include <stdio.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

enum { PROCESSES = 4, RECORDS = 5000 };

static void write_records(int process) {
    for (int i = 0; i < RECORDS; i++) {
        vxlb_debug_log_ex(VXLB_LEVEL_1, VXLB_MOD_MISC, __FILE__, __LINE__, __func__,
                          "process %d, record %d.", process, i);
    }
}

/* A record begins with a newline and ends with the full stop of the message above. */
static int count_records(const char *log, int *torn) {
    char line[256];
    int records = 0;
    FILE *in = fopen(log, "r");
    while (in != NULL && fgets(line, sizeof line, in) != NULL) {
        line[strcspn(line, "\n")] = '\0';
        if (line[0] != '\0') {
            records++;
            *torn += line[strlen(line) - 1] != '.';
        }
    }
    if (in != NULL) {
        fclose(in);
    }
    return records;
}

int main(int argc, char **argv) {
    int torn = 0;
    if (argc != 2) {
        fprintf(stderr, "usage: shared_log LOG\n");
        return 1;
    }
    vxlb_util_set_log_filename(argv[1], NULL);
    set_vxlb_debug("LIB_DEBUG 1");
    vxlb_util_set_modulemask(VXLB_MOD_MISC);
    for (int process = 0; process < PROCESSES; process++) {
        if (fork() == 0) {
            write_records(process);
            _exit(0);
        }
    }
    while (wait(NULL) > 0) {
    }
    printf("%d records", count_records(argv[1], &torn));
    printf(", %d torn\n", torn);
    return 0;
}
