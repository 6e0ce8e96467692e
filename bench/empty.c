/* What any program costs: says that it runs, then waits for its input's end. */
#include <stdio.h>

int main(void) {
    putchar('\n');
    fflush(stdout);
    while (getchar() != EOF) {
    }
    return 0;
}
