#include "StartUp.h"

int main(int argc, char *argv[])
{
    return StartUp::run(argc, argv);
}
