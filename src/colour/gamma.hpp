// The gamma table resolution shared by the gamma tables and their users.
#pragma once

namespace orx::colour {

// Smallest and largest resolution the tables accept.  Below 2 the linear
// scale 0..R-1 would have no steps to divide by; above 65536 the 8-bit to
// linear table could not hold its codes in 16 bits.
constexpr int kMinGammaTableRes = 2;
constexpr int kMaxGammaTableRes = 65536;

// The resolution R of the format-defaults database, held to the range above.
// Code that indexes the linear tables must size them with this value, not
// with the raw database setting.
int gamma_table_res();

}  // namespace orx::colour
