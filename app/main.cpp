#include "app/AmbrelMain.h"

int main(int argc, char** argv) {
    return ambrel::AmbrelMain::main(argc, argv);
}
