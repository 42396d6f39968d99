#include <cstdio>

#include "engine/engine.h"
#include "protocol/protocol.h"

namespace velkor {

char input_line[INPUT_SIZE];

bool read_line() {
    for (;;) {
        int length = 0, blanks = 0, c = 0;
        while ((c = input_byte()) != EOF && c != '\n') {
            if (c == ' ' || c == '\t') {
                if (length == 0 || ++blanks > 1) continue;
                c = ' ';
            } else {
                blanks = 0;
            }
            input_line[length++] = char(c);
            if (length == INPUT_SIZE - 1) {
                printf("info buffer Warning: input is too long and will be truncated (max = %i bytes)\n", INPUT_SIZE);
                while ((c = input_byte()) != EOF && c != '\n') {
                }
                break;
            }
        }
        input_line[length] = '\0';
        if (length > 0 && input_line[length - 1] == ' ') input_line[--length] = '\0';
        if (length > 0) return true;
        if (c == EOF) return false;  // an empty line is no command; read on unless input has ended
    }
}

}  // namespace velkor
