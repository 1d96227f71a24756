// Loads and unloads the library given to it, as told on standard input: "l" loads, "u" unloads; each is answered by the
// same letter when it is done. Ends when the input does.

#include <dlfcn.h>
#include <unistd.h>

int main(int count, char** arguments) {
    void* module = nullptr;
    char order = 0;
    while (count > 1 && read(STDIN_FILENO, &order, 1) == 1) {
        if (order == 'l')
            module = dlopen(arguments[1], RTLD_NOW);
        else
            dlclose(module);
        if (!module || write(STDOUT_FILENO, &order, 1) != 1)
            return 1;
    }
    return 0;
}
