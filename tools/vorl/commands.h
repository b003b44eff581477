// The tool's commands. Each takes the whole command line and the index of
// its first own argument, and returns the exit code (failures are thrown as
// cli::Failure).
#pragma once

namespace vorl {

int run_process(int argc, char **argv, int first);
int run_table(int argc, char **argv, int first);
int run_measure(int argc, char **argv, int first);

}  // namespace vorl
