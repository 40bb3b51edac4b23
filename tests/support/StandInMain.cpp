#include "tests/support/StandInProgram.h"

/// Copied under the name of the program that it takes the place of. Without a script it ends well.
int main(int argc, char **argv)
{
    return StandInProgram::run(argc, argv).value_or(0);
}
