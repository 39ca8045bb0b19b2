// The limit of a start: CommandLoop COMMAND... gives each command to system(3), in order, and does nothing else.

#include <stdlib.h>

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (system(argv[i]) != 0) {
            return 1;
        }
    }
    return 0;
}
