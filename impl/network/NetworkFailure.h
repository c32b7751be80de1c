#pragma once

#include <iostream>

#include "Basis/Exception.h"
#include "JoltNet/NetException.h"

namespace vetraTests {

/// Does something with the network. False, after its text on standard output, if that throws an
/// exception of the services; those that are not the network's are marked.
template <class Work>
bool succeeds(Work work)
{
    try {
        work();
        return true;
    } catch (const JoltNet::NetException& exception) {
        std::cout << exception << std::endl;
    } catch (const Basis::Exception& exception) {
        std::cout << " qrv " << exception << std::endl;
    }
    return false;
}

}  // namespace vetraTests
