// The tool's commands. Each takes the whole command line and the index of
// its first own argument, and returns the exit code (failures are thrown as
// cli::Failure). main.cpp lists them in its command table.
#pragma once

namespace vorl {

int run_process(int argc, char **argv, int first);
int run_measure(int argc, char **argv, int first);
int run_report(int argc, char **argv, int first);  // needs the Python module

// "vorl table ...": the group's help text, then one function per command.
extern const char kTableHelp[];
int run_table_new(int argc, char **argv, int first);
int run_table_dump(int argc, char **argv, int first);
int run_table_check(int argc, char **argv, int first);
int run_table_to_json(int argc, char **argv, int first);
int run_table_from_json(int argc, char **argv, int first);
int run_table_fit(int argc, char **argv, int first);
int run_table_diff(int argc, char **argv, int first);

}  // namespace vorl
