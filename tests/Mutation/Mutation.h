// Which mutant of the instrumented sources is on. Included into every source of a mutation run, and into nothing else.
#pragma once
#ifdef __cplusplus

/// Null, or 4 bytes for the number of the mutant that is on, then a byte for each mutant's place that was reached.
inline volatile unsigned char* torvaneMutation = nullptr;

inline bool TorvaneMutant(int number)
{
    volatile unsigned char* mutation = torvaneMutation;
    if (mutation == nullptr)
    {
        return false;
    }
    mutation[4 + number] = 1;
    return *reinterpret_cast<volatile int*>(mutation) == number;
}

#endif
