// The entry of the vellum program.
#include "driver/program.hpp"

int main(int argc, char** argv) {
    return vellum::program::run(argc, argv);
}
