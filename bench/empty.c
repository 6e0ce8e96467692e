/* What any program costs: says that it runs, then waits for its input's end. With WITH_IMPORTS it also loads the system
 * libraries that orvane_mcp.dll loads, and calls none of them. */
#include <stdio.h>

#ifdef WITH_IMPORTS
#include <objbase.h>
#include <windows.h>
const void* const volatile Imports[] = {(const void*)RegOpenKeyExW, (const void*)SendMessageW,
                                        (const void*)CoTaskMemFree};
#endif

int main(void) {
#ifdef WITH_IMPORTS
    if (!Imports[0]) return 1;
#endif
    putchar('\n');
    fflush(stdout);
    while (getchar() != EOF) {
    }
    return 0;
}
