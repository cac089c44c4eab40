// Calculation conditions: reading keys of the case and the boundary table.
//
// Every read is a library call whose status is tested at once; a failure
// prints the fixed line of a read error, waits for the operator and stops.
#pragma once

#include <string>

namespace rl {

int read_integer(const char* key);
double read_real(const char* key);
// The value as the library gives it: 200 characters, blank padded.
std::string read_string(const char* key);

// Optional keys (features beyond the 44 of a case): read only when the case
// holds them, else the default; a key that is present but unreadable (of
// another type) is a read error like any other.
int optional_integer(const char* key, int fallback);
double optional_real(const char* key, double fallback);
// Blanks around the value removed.
std::string optional_string(const char* key, const std::string& fallback);

// The stops after a failed library read or write.
[[noreturn]] void stop_read_error();
[[noreturn]] void stop_write_error();
// Says on standard error why writing to the case at path failed (what: the
// act, "write the results of").
void explain_case_write(const std::string& path, const std::string& what);

// Sets ibcu, ibcv, ibcw, ibcp and bcu, bcv, bcw from the three boundary
// switches.  The x switch has no effect: the x faces stay periodic.
void set_boundary_types(int xbound, int ybound, int zbound);

}  // namespace rl
