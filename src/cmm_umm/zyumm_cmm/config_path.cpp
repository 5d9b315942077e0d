/*
 * Where node_config.xml lies, and under which name this process is listed in it.
 *
 *     /proc/<pid>/exe -> /opt/node/bin/io_process
 *                        |------------| |--------|
 *                        directory      process name
 *
 *     set by zyumm_set_config_path(dir):   dir/config/node_config.xml, or dir/node_config.xml
 *     else, at module start:               /opt/node/bin/./node_config.xml
 *
 * The path is set once, by whichever of the two comes first; the name is found at every start.
 *
 * Locking: none. The thread that starts the library writes these buffers; everybody else reads
 * them afterwards.
 *
 * Deliberately absent: a test that the file exists where the path points. The reader of the
 * document opens the file a moment later and reports that itself.
 */
#include "zyumm_cmm.h"

#include "bounded.h"
#include "zyax.h"

#include "common/cmm_log.h"

#include <stdlib.h>
#include <string.h>
#include <unistd.h>

/* For dirname only. This header also makes basename a macro for a function that cuts its argument;
 * the one of <string.h>, which has to come first, leaves the argument alone and is wanted here. */
#include <libgen.h>
#undef basename

static constexpr size_t PROC_LINK_SIZE = 256; /* bytes of the text "/proc/<pid>/exe" */

static constexpr char CONFIG_IN_SUBDIRECTORY[] = "/config/node_config.xml";
static constexpr char CONFIG_IN_DIRECTORY[]    = "/node_config.xml";

static constexpr int EXISTENCE = 0; /* mode of zyax_access */

char g_config_path[CMM_PATH_SIZE];
char g_proc_name[CMM_PROC_NAME_SIZE];
char g_exe_file_path[CMM_PATH_SIZE];
char g_cfg_path_absolute[CMM_PATH_SIZE];

/* Fills g_exe_file_path with the executable's path; `func` is the operation that the lines name. */
static uint32_t read_executable(const char *func)
{
    char link[PROC_LINK_SIZE];

    const int formatted = snprintf_s(link, sizeof link, sizeof link - 1, "/proc/%d/exe", getpid());
    if (formatted < 0) {
        CMM_LOG_AS(func, ZYLOG_ERROR, "binary exe len too long");
        return CMM_FAILURE;
    }

    /* As an unsigned number the -1 of a failed call is too long as well. */
    const ssize_t length = readlink(link, g_exe_file_path, CMM_PATH_SIZE);
    if (uint32_t(length) > CMM_PATH_SIZE - 1) {
        CMM_LOG_AS(func, ZYLOG_ERROR, "read link for exe_path fail, ret[%d]", int(length));
        return CMM_FAILURE;
    }
    g_exe_file_path[length] = '\0';
    return CMM_OK;
}

uint32_t get_umm_cfg_path(char *cfg_path, char *proc_name)
{
    if (cfg_path == nullptr || proc_name == nullptr)
        return CMM_FAILURE;

    if (read_executable(__func__) != CMM_OK)
        return CMM_FAILURE;

    /* Before dirname: it cuts the file's name off the same buffer. */
    const char *name  = basename(g_exe_file_path);
    const int   named = snprintf_s(proc_name, CMM_PROC_NAME_SIZE, CMM_PROC_NAME_SIZE - 1, "%s",
                                   name);
    if (named < 0) {
        CMM_LOG(ZYLOG_ERROR, "binary name len too long");
        return CMM_FAILURE;
    }

    if (cfg_path[0] != '\0') {
        CMM_LOG(ZYLOG_INFO, "umm node_config.xml path='%s', name (%s)", cfg_path, proc_name);
        return CMM_OK;
    }

    const char *directory = dirname(g_exe_file_path);
    const int   formatted = snprintf_s(cfg_path, CMM_PATH_SIZE, CMM_PATH_SIZE - 1,
                                       "%s/./node_config.xml", directory);
    if (formatted < 0) {
        CMM_LOG(ZYLOG_ERROR, "node config path too long");
        return CMM_FAILURE;
    }
    CMM_LOG(ZYLOG_INFO, "node_config.xml path is: %s, proc_name %s.", cfg_path, proc_name);
    return CMM_OK;
}

/* The length was checked before, so a text that does not fit is a broken invariant. */
static void format_config_path(const char *directory, const char *file, const char *func)
{
    const int ret = snprintf_s(g_config_path, CMM_PATH_SIZE, CMM_PATH_SIZE - 1, "%s%s", directory,
                               file);
    if (ret == -1) {
        CMM_LOG_AS(func, ZYLOG_ERROR, "The path snprintf_s error ret(%d).", ret);
        CMM_LOG_RAW_AS(func, ZYLOG_FATAL, "BUG");
        cmm_die();
    }
}

uint32_t zyumm_set_config_path(const char *path, const char *func, uint32_t line)
{
    if (path == nullptr) {
        CMM_LOG(ZYLOG_ERROR, "The path is NULL.func(%s) line(%u)", cmm_text(func), line);
        return CMM_FAILURE;
    }

    char *directory = realpath(path, nullptr);
    if (directory == nullptr) {
        CMM_LOG(ZYLOG_ERROR, "The filePath is NULL.func(%s) line(%u)", cmm_text(func), line);
        return CMM_FAILURE;
    }
    if (strlen(directory) + sizeof CONFIG_IN_SUBDIRECTORY > CMM_PATH_SIZE) {
        free(directory);
        CMM_LOG(ZYLOG_ERROR, "The path is too long.func(%s) line(%u)", cmm_text(func), line);
        return CMM_FAILURE;
    }

    format_config_path(directory, CONFIG_IN_SUBDIRECTORY, __func__);
    if (zyax_access(g_config_path, EXISTENCE) != 0)
        format_config_path(directory, CONFIG_IN_DIRECTORY, __func__);
    free(directory);
    CMM_LOG(ZYLOG_INFO, "The umm config path: %s. func(%s) line(%u)", g_config_path,
            cmm_text(func), line);
    return CMM_OK;
}

uint32_t zyumm_config_path_get(char *buf)
{
    if (buf == nullptr)
        return CMM_FAILURE;

    const int copied = strncpy_s(buf, CMM_PATH_SIZE, g_cfg_path_absolute, CMM_PATH_SIZE - 1);
    return copied == 0 ? CMM_OK : CMM_FAILURE;
}

uint32_t zyumm_config_info_get(char *path_buf, char *proc_name_buf)
{
    if (path_buf == nullptr || proc_name_buf == nullptr)
        return CMM_FAILURE;

    CMM_LOG(ZYLOG_INFO, "The umm config path: %s.", g_config_path);
    /* sic: a block, not a text; callers own the last byte of the buffer and find it as it was. */
    int copied = memcpy_s(path_buf, CMM_PATH_SIZE, g_config_path, CMM_PATH_SIZE - 1);
    if (copied != 0)
        return CMM_FAILURE;
    copied = strncpy_s(proc_name_buf, CMM_PROC_NAME_SIZE, g_proc_name, CMM_PROC_NAME_SIZE - 1);
    return copied == 0 ? CMM_OK : CMM_FAILURE;
}
