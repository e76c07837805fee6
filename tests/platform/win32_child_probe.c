/* A real program for the child-process test: its arguments on stdout, a line on stderr. */
#include <stdio.h>

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) printf("[%s]", argv[i]);
    printf("\n");
    fflush(stdout);
    fprintf(stderr, "to stderr\n");
    return argc;
}
