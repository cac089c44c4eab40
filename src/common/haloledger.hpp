// The halo ledger of the checked build.  Over several processes an array's
// halo holds its neighbours' values as they were at the last exchange; a
// routine that reads the halo after its owner changed those values reads
// stale numbers, which no bounds check sees.  The ledger keeps, per array,
// how deep its halo is current: an exchange fills it (fill_halo, fill_halos), a
// routine that writes the array's own values makes it stale, and a routine
// that reads the halo says how deep.  A read deeper than the current halo
// stops the run with the array, the depth and the reader.  In the release
// build every call compiles to nothing.
#pragma once

#include <string>

namespace rl {

#ifdef RIVERLES_BOUNDS_CHECK
// The halo of f current to `depth` columns.
void halo_filled(const void* f, int depth);
// f's own values changed: its halo is stale.
void halo_wrote(const void* f);
// `who` reads f's halo `depth` columns deep (checked only when the run is
// cut among processes).
void halo_read(const void* f, const char* name, int depth, const char* who);
// Forgets every array: the layout changed (another block, the whole box),
// and the halos are what the set-up then puts in them.
void halo_forget_all();
// What a stale read does: by default the message on standard error and an
// abort; a test may record it instead.
using HaloFault = void (*)(const std::string& message);
void set_halo_fault(HaloFault fault);
#else
inline void halo_filled(const void*, int) {}
inline void halo_wrote(const void*) {}
inline void halo_read(const void*, const char*, int, const char*) {}
inline void halo_forget_all() {}
#endif

}  // namespace rl
