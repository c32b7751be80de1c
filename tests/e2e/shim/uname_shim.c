/* Answers uname() for the programs that run on a fake host.
 *
 * Files can be bound over the machine's own, the answer of this one system call cannot. The fields
 * "machine" and "release" come from VETRA_FAKE_MACHINE and VETRA_FAKE_RELEASE; all others, and
 * these two while their variable is unset, are the kernel's. The commands that a program starts
 * inherit the library, so that they live on the same host; they see nothing else of it. */
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

static void replaceField(char* field, size_t size, const char* variable)
{
    const char* text = getenv(variable);
    if (!text)
        return;
    memset(field, 0, size);
    strncpy(field, text, size - 1);
}

int uname(struct utsname* answer)
{
    if (syscall(SYS_uname, answer) != 0)
        return -1;
    replaceField(answer->machine, sizeof answer->machine, "VETRA_FAKE_MACHINE");
    replaceField(answer->release, sizeof answer->release, "VETRA_FAKE_RELEASE");
    return 0;
}
