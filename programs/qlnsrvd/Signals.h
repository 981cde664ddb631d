#pragma once

#include "Descriptor.h"

#include <csignal>
#include <initializer_list>

namespace qlnsrvd
{
/// Takes the given signals as bytes of a descriptor instead of interruptions.
class Signals
{
public:
    /// Throws: farend::Failure.
    explicit Signals(std::initializer_list<int> numbers);
    /// Gives them back their own ways, in a child that is about to become something else.
    static void Release();

    void Close() { m_Descriptor.Close(); }
    int Descriptor() const { return m_Descriptor.Get(); }
    /// The next that came, 0 when there is none.
    int Take() const;

private:
    farend::Descriptor m_Descriptor;
};
} // namespace qlnsrvd
