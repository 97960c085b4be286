/* heap_fault.c - writes beyond a block or after its release, on purpose: shows that a heap checker looks. */
#include <stdlib.h>
#include <string.h>

int main(int argc, char** argv)
{
    const size_t size = 24;
    char* const block = malloc(size);
    if (argc < 2 || !block)
        return 2;
    if (strcmp(argv[1], "beyond") == 0) {
        memset(block, 'x', size + 2);
        free(block);
    } else {
        free(block);
        memset(block, 'x', size);
        free(malloc(2 * size));
    }
    return 0;
}
