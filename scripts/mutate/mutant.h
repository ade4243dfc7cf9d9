// SPDX-License-Identifier: MIT
//
// Included before every source of a mutated build (-include): the switch between the faults.
#pragma once

extern "C" {
/// The fault that this process runs with; 0: none; negative: coverage is recorded.
extern __attribute__((visibility("hidden"))) int mutant_active;
/// Records that the place of fault `number` was reached. \return 0
__attribute__((visibility("hidden"))) int mutant_record(int number);
}

/// Whether fault `number` is switched on.
static inline bool MUTANT(int number)
{
    return __builtin_expect(mutant_active < 0, 0) ? mutant_record(number) != 0
                                                  : mutant_active == number;
}
