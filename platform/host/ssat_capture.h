// Capture of what a handler prints on standard output.
#pragma once

#include <functional>
#include <string>

// Runs `fn` with file descriptor 1 sent to an anonymous file, then puts the
// descriptor back and returns the text in *out and fn's result in *rv.
// False, with fn not run, when the descriptor cannot be redirected.
bool ssat_capture_stdout(const std::function<int()> &fn, int *rv,
                         std::string *out);
