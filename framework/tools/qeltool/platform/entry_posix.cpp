// The tool's entry point where the command line is UTF-8 already.
#include "../command.h"

int main(int argc, char** argv)
{
    return qeltool::Main(argc, argv);
}
