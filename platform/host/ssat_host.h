// Host side of the debug command framework: where a module is served, how
// one command line is run, and the seams that tests and hnx-cmd use.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <uv.h>

// What one command line gave.
struct ssat_reply {
    bool ran = false;  // the handler was called, or the help was given
    int result = 0;    // the handler's result
    std::string text;  // what it printed, or why the line was refused
};

// A module name fit to stand in a file name: letters, digits, '-', '_', '.',
// not starting with '.'.
bool ssat_module_name_ok(std::string_view module);

// <root>/var/run/hnx/<module>.sock
std::string ssat_sock_path(std::string_view module);

// Runs one command line of a module on the calling thread: reads the words
// by the command's format and calls the handler with standard output
// captured. "help" lists the commands with their formats (ssat_help_list).
// A refused line calls nothing.
ssat_reply ssat_run_line(std::string_view module, std::string_view line);

// Serves the module's commands on `loop` at `path`; ssat_lib_init does this
// with the runtime's loop and ssat_sock_path. 0 or an SSAT_E_* code.
int ssat_serve(uv_loop_t *loop, std::string_view module, const std::string &path);

// Names of a module's commands, in the order of registration.
std::vector<std::string> ssat_host_commands(std::string_view module);

// Forgets every module and stops serving it (tests).
void ssat_host_reset();

// The same for a process that ends and starts again in this one
// (hnx_host_set_in_process): the commands' records stay, so that the same
// commands registered again after the next init cost no reading of their
// formats.
void ssat_host_forget_commands();
