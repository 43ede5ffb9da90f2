// lab-confine [-c CAPABILITIES] [-p POLICY[,POLICY]] [-l] [-w LIBRARY] SCRIPT COMMAND ...
// lab-confine -s NUMBER
//
// Runs COMMAND as init would start the service of SCRIPT: its user, groups, capabilities and
// limits. With POLICY also under a seccomp policy: files with a line "CALL: 1" for each system call
// that is allowed; any other ends the process. -c has other capabilities in the place of the
// script's ("-": none), -l only logs what a policy forbids, to the kernel's log, -w loads LIBRARY
// into the command. With -s it prints the name of a system call of this machine.
//
// The filter is in force from the command's main on (libconfined.so installs it), so that it need
// not allow what only this program and the dynamic loader do.
#define _GNU_SOURCE  // setresuid
#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <seccomp.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <unistd.h>

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>

static const char* const kCapabilities[] = {"CHOWN",
                                            "DAC_OVERRIDE",
                                            "DAC_READ_SEARCH",
                                            "FOWNER",
                                            "FSETID",
                                            "KILL",
                                            "SETGID",
                                            "SETUID",
                                            "SETPCAP",
                                            "LINUX_IMMUTABLE",
                                            "NET_BIND_SERVICE",
                                            "NET_BROADCAST",
                                            "NET_ADMIN",
                                            "NET_RAW",
                                            "IPC_LOCK",
                                            "IPC_OWNER",
                                            "SYS_MODULE",
                                            "SYS_RAWIO",
                                            "SYS_CHROOT",
                                            "SYS_PTRACE",
                                            "SYS_PACCT",
                                            "SYS_ADMIN",
                                            "SYS_BOOT",
                                            "SYS_NICE",
                                            "SYS_RESOURCE",
                                            "SYS_TIME",
                                            "SYS_TTY_CONFIG",
                                            "MKNOD",
                                            "LEASE",
                                            "AUDIT_WRITE",
                                            "AUDIT_CONTROL",
                                            "SETFCAP",
                                            "MAC_OVERRIDE",
                                            "MAC_ADMIN",
                                            "SYSLOG",
                                            "WAKE_ALARM",
                                            "BLOCK_SUSPEND",
                                            "AUDIT_READ"};
enum { kCapabilityCount = sizeof(kCapabilities) / sizeof(*kCapabilities) };

/** The numbers of the device's users, as far as the service's script names them. */
static const struct {
    const char* name;
    unsigned id;
} kIds[] = {{"root", 0}, {"system", 1000}, {"wifi", 1010}, {"inet", 3003}};

static struct {
    unsigned user;
    gid_t groups[16];
    size_t groupCount;
    unsigned long long capabilities;
    struct rlimit descriptors;
} service = {.user = 0};

__attribute__((noreturn, format(printf, 1, 2))) static void fail(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    fputs("lab-confine: ", stderr);
    vfprintf(stderr, format, arguments);
    fputc('\n', stderr);
    va_end(arguments);
    exit(126);
}

static unsigned idOf(const char* name) {
    for (size_t i = 0; i < sizeof(kIds) / sizeof(*kIds); ++i) {
        if (strcmp(kIds[i].name, name) == 0) {
            return kIds[i].id;
        }
    }
    fail("no number is known for the user or group %s (kIds in lab/programs/confine.c)", name);
}

static unsigned long long capabilityOf(const char* name) {
    for (int i = 0; i < kCapabilityCount; ++i) {
        if (strcasecmp(kCapabilities[i], name) == 0) {
            return 1ULL << i;
        }
    }
    fail("there is no capability %s", name);
}

/** What the script's one service says. */
static void readScript(const char* path) {
    FILE* const file = fopen(path, "re");
    if (file == NULL) {
        fail("%s: %s", path, strerror(errno));
    }
    int inService = 0;
    char line[512];
    while (fgets(line, sizeof(line), file) != NULL) {
        line[strcspn(line, "#\n")] = '\0';
        const int isHead = line[0] != '\0' && !isspace((unsigned char)line[0]);
        char* rest = NULL;
        const char* const option = strtok_r(line, " \t", &rest);
        if (option == NULL) {
            continue;
        }
        if (isHead) {
            inService = strcmp(option, "service") == 0;
            continue;
        }
        if (!inService) {
            continue;
        }
        for (const char* word = strtok_r(NULL, " \t", &rest); word != NULL;
             word = strtok_r(NULL, " \t", &rest)) {
            if (strcmp(option, "user") == 0) {
                service.user = idOf(word);
            } else if (strcmp(option, "group") == 0) {
                if (service.groupCount == 16) {
                    fail("%s: too many groups", path);
                }
                service.groups[service.groupCount++] = idOf(word);
            } else if (strcmp(option, "capabilities") == 0) {
                service.capabilities |= capabilityOf(word);
            } else if (strcmp(option, "rlimit") == 0 && strcmp(word, "nofile") == 0) {
                service.descriptors.rlim_cur = strtoul(strtok_r(NULL, " \t", &rest), NULL, 10);
                service.descriptors.rlim_max = strtoul(strtok_r(NULL, " \t", &rest), NULL, 10);
            }
        }
    }
    fclose(file);
    if (service.user == 0 || service.groupCount == 0) {
        fail("%s: names no user and group", path);
    }
}

static void addPolicy(scmp_filter_ctx filter, const char* path) {
    FILE* const file = fopen(path, "re");
    if (file == NULL) {
        fail("%s: %s", path, strerror(errno));
    }
    char line[512];
    for (int number = 1; fgets(line, sizeof(line), file) != NULL; ++number) {
        line[strcspn(line, "#\n")] = '\0';
        char name[64];
        char allowed[8];
        const int words = sscanf(line, " %63[a-z0-9_]: %7s", name, allowed);
        if (words < 1) {
            continue;
        }
        if (words != 2 || strcmp(allowed, "1") != 0) {
            fail("%s:%d: is no 'CALL: 1'", path, number);
        }
        const int call = seccomp_syscall_resolve_name(name);
        if (call == __NR_SCMP_ERROR) {
            fail("%s:%d: there is no system call %s", path, number, name);
        }
        // A negative one is a call of other machines only.
        if (call >= 0 && seccomp_rule_add(filter, SCMP_ACT_ALLOW, call, 0) != 0) {
            fail("%s:%d: %s could not be allowed", path, number, name);
        }
    }
    fclose(file);
}

/** Has the dynamic loader load a library into the command, with those of earlier calls. */
static void preload(const char* library) {
    const char* const others = getenv("LD_PRELOAD");
    char libraries[256];
    snprintf(libraries, sizeof(libraries), "%s%s%s", others == NULL ? "" : others,
             others == NULL ? "" : ":", library);
    setenv("LD_PRELOAD", libraries, 1);
}

/** Leaves the filter to libconfined.so, as a file that the command inherits. */
static void preparePolicy(char* policies, uint32_t otherwise) {
    scmp_filter_ctx filter = seccomp_init(otherwise);
    char* rest = NULL;
    for (const char* path = strtok_r(policies, ",", &rest); path != NULL;
         path = strtok_r(NULL, ",", &rest)) {
        addPolicy(filter, path);
    }
    char name[] = "/tmp/lab-confine.XXXXXX";
    const int file = mkstemp(name);
    if (filter == NULL || file == -1 || unlink(name) != 0 ||
        seccomp_export_bpf(filter, file) != 0) {
        fail("the policy could not be compiled");
    }
    seccomp_release(filter);
    char descriptor[16];
    snprintf(descriptor, sizeof(descriptor), "%d", file);
    setenv("LAB_SECCOMP_FILTER", descriptor, 1);
    preload("/usr/lib/libconfined.so");
}

/** What init does between fork and exec. */
static void becomeService(void) {
    if (service.descriptors.rlim_max != 0 && setrlimit(RLIMIT_NOFILE, &service.descriptors) != 0) {
        fail("setrlimit: %s", strerror(errno));
    }
    for (int i = 0; i < 64; ++i) {
        if ((service.capabilities & (1ULL << i)) == 0 && prctl(PR_CAPBSET_DROP, i, 0, 0, 0) != 0 &&
            errno != EINVAL) {
            fail("capability %d could not be dropped: %s", i, strerror(errno));
        }
    }
    prctl(PR_SET_KEEPCAPS, 1, 0, 0, 0);
    if (setgroups(service.groupCount - 1, service.groups + 1) != 0 ||
        setresgid(service.groups[0], service.groups[0], service.groups[0]) != 0 ||
        setresuid(service.user, service.user, service.user) != 0) {
        fail("user and groups: %s", strerror(errno));
    }
    struct __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    struct __user_cap_data_struct data[2] = {{0, 0, 0}, {0, 0, 0}};
    for (int i = 0; i < 2; ++i) {
        data[i].effective = data[i].permitted = data[i].inheritable =
            (uint32_t)(service.capabilities >> (32 * i));
    }
    if (syscall(SYS_capset, &header, data) != 0) {
        fail("capset: %s", strerror(errno));
    }
    for (int i = 0; i < kCapabilityCount; ++i) {
        if ((service.capabilities & (1ULL << i)) != 0 &&
            prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, i, 0, 0) != 0) {
            fail("capability %s: %s", kCapabilities[i], strerror(errno));
        }
    }
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
        fail("no_new_privs: %s", strerror(errno));
    }
}

/** Returns the exit status. */
static int printNameOfCall(int number) {
    char* const name = seccomp_syscall_resolve_num_arch(SCMP_ARCH_NATIVE, number);
    if (name == NULL) {
        fail("there is no system call %d", number);
    }
    puts(name);
    free(name);
    return 0;
}

int main(int count, char** arguments) {
    char* capabilities = NULL;
    char* policies = NULL;
    uint32_t otherwise = SCMP_ACT_KILL_PROCESS;
    for (int option; (option = getopt(count, arguments, "+c:p:ls:w:")) != -1;) {
        switch (option) {
            case 'c':
                capabilities = optarg;
                break;
            case 'p':
                policies = optarg;
                break;
            case 'l':
                otherwise = SCMP_ACT_LOG;
                break;
            case 's':
                return printNameOfCall(atoi(optarg));
            case 'w':
                preload(optarg);
                break;
            default:
                return 126;
        }
    }
    if (count - optind < 2) {
        fail("needs an init script and a command");
    }
    readScript(arguments[optind]);
    if (capabilities != NULL) {
        service.capabilities = 0;
        char* rest = NULL;
        for (const char* name = strtok_r(capabilities, ",", &rest);
             name != NULL && strcmp(name, "-") != 0; name = strtok_r(NULL, ",", &rest)) {
            service.capabilities |= capabilityOf(name);
        }
    }
    if (policies != NULL) {
        preparePolicy(policies, otherwise);
    }
    becomeService();
    execvp(arguments[optind + 1], arguments + optind + 1);
    fail("%s: %s", arguments[optind + 1], strerror(errno));
}
