// gralloc-layout: asks the gralloc helper what layout buffers of given shapes will have.
#include <iostream>

#include "LayoutQuery.h"

int main(int argc, char** argv) {
    return zyncam::tools::runLayoutQuery(argc, argv, std::cout, std::cerr);
}
