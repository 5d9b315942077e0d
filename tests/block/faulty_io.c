/*
 * Faults from below, for a server that runs with this library preloaded: what the file named by
 * FAULTY_IO says happens to every preadv, pwritev and fallocate of a large offset, until the file
 * says something else.
 *
 *     read EIO     reads fail
 *     write EIO    writes fail
 *     write ENOSPC room cannot be had: neither by fallocate nor by writing
 *     tear pages   a write of pages ends in the middle of a sector, and the process with it
 *     tear journal likewise a write of the journal
 *     short        reads and writes move one byte less than asked, or one byte
 *     hold reads   reads wait until the file says something else; each notes itself, by a byte, in
 *                  the file with ".held" behind its name
 *
 * Offsets below the first data page (header and journal) are left alone by the first three, so that
 * the fault hits the pages; so are they by the last one.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

enum { JOURNAL_OFFSET = 8192, DATA_OFFSET = 4300800, TORN_AT = 5000 };

/* True when the control file begins with the word. */
static int asked_for(const char *word)
{
    const char *path = getenv("FAULTY_IO");
    char text[32] = "";
    int saved = errno, fd;

    if (path == NULL || (fd = open(path, O_RDONLY | O_CLOEXEC)) < 0) {
        errno = saved;
        return 0;
    }
    if (read(fd, text, sizeof text - 1) < 0)
        text[0] = '\0';
    close(fd);
    errno = saved;
    return strncmp(text, word, strlen(word)) == 0;
}

typedef ssize_t (*move_call)(int, const struct iovec *, int, off_t);

static ssize_t move_less(move_call real, int fd, const struct iovec *vectors, off_t offset)
{
    struct iovec less = vectors[0];

    if (less.iov_len > 1)
        --less.iov_len;
    return real(fd, &less, 1, offset);
}

/* Waits for as long as it is asked to. */
static void hold_up(void)
{
    const struct timespec pause = {0, 1000000};
    char path[4096];
    int fd;

    snprintf(path, sizeof path, "%s.held", getenv("FAULTY_IO"));
    fd = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (fd < 0 || write(fd, "r", 1) != 1)
        abort();
    close(fd);
    while (asked_for("hold reads"))
        nanosleep(&pause, NULL);
}

/* Writes the front of what was asked for, into the middle of a sector, and ends the process. */
static void tear(move_call real, int fd, const struct iovec *vectors, int count, off_t offset)
{
    size_t left = TORN_AT;

    for (int i = 0; i < count && left > 0; ++i) {
        struct iovec front = vectors[i];
        if (front.iov_len > left)
            front.iov_len = left;
        if (real(fd, &front, 1, offset) != (ssize_t)front.iov_len)
            break;
        left -= front.iov_len;
        offset += (off_t)front.iov_len;
    }
    kill(getpid(), SIGKILL);
}

static ssize_t faulty(const char *name, const char *fault, int fd, const struct iovec *vectors,
                      int count, off_t offset)
{
    move_call real = (move_call)dlsym(RTLD_NEXT, name);
    char word[32];

    if (offset >= DATA_OFFSET) {
        snprintf(word, sizeof word, "%s EIO", fault);
        if (asked_for(word)) {
            errno = EIO;
            return -1;
        }
        if (strcmp(fault, "write") == 0 && asked_for("write ENOSPC")) {
            errno = ENOSPC;
            return -1;
        }
        if (strcmp(fault, "read") == 0 && asked_for("hold reads"))
            hold_up();
    }
    if (strcmp(fault, "write") == 0 && offset >= JOURNAL_OFFSET &&
        asked_for(offset >= DATA_OFFSET ? "tear pages" : "tear journal"))
        tear(real, fd, vectors, count, offset);
    if (asked_for("short"))
        return move_less(real, fd, vectors, offset);
    return real(fd, vectors, count, offset);
}

ssize_t preadv(int fd, const struct iovec *vectors, int count, off_t offset)
{
    return faulty("preadv", "read", fd, vectors, count, offset);
}

ssize_t pwritev(int fd, const struct iovec *vectors, int count, off_t offset)
{
    return faulty("pwritev", "write", fd, vectors, count, offset);
}

int fallocate(int fd, int mode, off_t offset, off_t length)
{
    int (*real)(int, int, off_t, off_t) = (int (*)(int, int, off_t, off_t))dlsym(RTLD_NEXT,
                                                                               "fallocate");
    if (offset >= DATA_OFFSET && (mode & FALLOC_FL_PUNCH_HOLE) == 0 && asked_for("write ENOSPC")) {
        errno = ENOSPC;
        return -1;
    }
    return real(fd, mode, offset, length);
}
