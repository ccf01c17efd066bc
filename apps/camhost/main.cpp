#include "apps/camhost/options.h"
#include "apps/camhost/program.h"

int main(int argc, char** argv) {
    camhost::teExit status = camhost::teExit::eSuccess;
    const auto options = camhost::parseOptions(argc, argv, status);
    if (options)
        status = camhost::run(*options);
    return static_cast<int>(status);
}
