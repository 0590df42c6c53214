/* A program in C that finds the library's C entry points by their names.
 *
 * It is called with the library's path. */

#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

typedef const char* (*BaseName)(const char*);
typedef void (*PrintLog)(int, const char*, const char*, int, const char*, const char*, ...);
typedef void (*DumpMemory)(const char*, const unsigned char*, int);

/* Stores the function @p p_name in the function pointer @p p_function. */
static void find(void* p_library, const char* p_name, void* p_function) {
    void* const p_symbol = dlsym(p_library, p_name);
    if (p_symbol == NULL) {
        (void)fprintf(stderr, "%s\n", dlerror());
        exit(1);
    }
    memcpy(p_function, &p_symbol, sizeof(p_symbol));
}

int main(int argc, char** argv) {
    const unsigned char bytes[] = {0x00, 0x7F, 0xFF};
    void* const p_library = argc == 2 ? dlopen(argv[1], RTLD_NOW | RTLD_LOCAL) : NULL;
    BaseName baseName;
    PrintLog printBrowserLog;
    PrintLog printControllerLog;
    DumpMemory dumpMemory;

    if (p_library == NULL) return 2;
    find(p_library, "blog_base_name", &baseName);
    find(p_library, "print_browser_log", &printBrowserLog);
    find(p_library, "print_hbbtv_controller_log", &printControllerLog);
    find(p_library, "dump_memory", &dumpMemory);

    (void)printf("%s\n", baseName("x/y/z"));
    printBrowserLog(1, "TAG", "a/b.c", 12, "f", "x=%d", 5);
    printControllerLog(1, NULL, NULL, 7, NULL, "%s", "y");
    dumpMemory("bytes", bytes, 3);
    return dlclose(p_library) == 0 ? 0 : 1;
}
