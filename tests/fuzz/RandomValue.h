#pragma once

#include "WireValue.h"

class FuzzedDataProvider;

/** Values of a type, and types, as an input dictates them. */
class RandomValue
{
public:
    /** @param anything  also what Qt D-Bus cannot send back: empty signatures, and descriptors that are none
     */
    RandomValue(FuzzedDataProvider& input, bool anything) : m_input(input), m_anything(anything) {}

    WireValue value(const std::string& signature, int depth = 0);
    std::string signature(int depth = 0);

private:
    WireValue variant(int depth);
    std::string text();
    std::string path();

    FuzzedDataProvider& m_input;
    bool m_anything;
    /** Variants in variants, as deep as a message may be nested after all. */
    int m_spareVariants = 30;
};
