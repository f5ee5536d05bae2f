#include "HostApplication.h"

int main(int argc, char** argv) {
    return ZelHost::HostApplication().main(argc, argv);
}
