// qvdovrin entry point.
#include "commands.h"

#include <iostream>

int main(int argc, char **argv) {
    qvdovrin::Io io{std::cout, std::cerr};
    return qvdovrin::run(argc, argv, io);
}
