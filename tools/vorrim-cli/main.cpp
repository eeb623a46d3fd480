#include "Commands.h"

int main(int argc, char** argv) {
    return vorrim::cli::run_cli(argc, argv);
}
