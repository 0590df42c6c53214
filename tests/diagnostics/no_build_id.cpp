// A program that is linked without a build id, but has notes of that type by others: one whose name
// is as long as the linker's, one whose name begins as the linker's. Writes a recording to its
// standard output.

#include <unistd.h>

#include "base/diagnostics.h"

__asm__(
    ".pushsection .note.others, \"a\", %note\n"
    ".balign 4\n"
    ".long 4, 4, 3\n"
    ".asciz \"ABC\"\n"
    ".long 0x11111111\n"
    ".long 8, 4, 3\n"
    ".asciz \"GNU\\0not\"\n"
    ".long 0x22222222\n"
    ".popsection\n");

int main() {
    using namespace tevalon::base::diagnostics;
    const bool isWritten =
        startRecording() == Status::Ok && writeRecording(STDOUT_FILENO) == Status::Ok;
    return isWritten ? 0 : 1;
}
