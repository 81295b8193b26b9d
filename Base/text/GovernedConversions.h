#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/NotBool.h>
#include <Base/frame/ReturnString.h>
#include <Base/frame/SmartPtrI.h>
#include <Base/memory/MemoryContract.h>

namespace ZBase {

// `WideCharToUTF8` and `WideCharToUTF8UsingLength` under a budget: before a result for 8,192 units or more is
// allocated, 8 bytes a unit and 2 more are requested from the contract, and settled after. Smaller ones and
// an empty `contract` need no request; 4 GiB and more are requested as 4,294,967,295 bytes. Throw
// `ContractManagerAllocException` when it refuses, with nothing allocated, and what the ungoverned forms
// throw. The order of flag and contract differs in the two.

ZBASE_API ReturnString WideCharToUTF8Governed(const unsigned short* source, bool replace,
                                              SmartPtrI<MemoryContract>& contract);

ZBASE_API ReturnString WideCharToUTF8UsingLengthGoverned(const unsigned short* source, unsigned int length,
                                                         SmartPtrI<MemoryContract>& contract, bool replace);

// The flag must be exactly a `bool`.
template <NotBool Flag>
ReturnString WideCharToUTF8Governed(const unsigned short* source, Flag replace,
                                    SmartPtrI<MemoryContract>& contract) = delete;
template <NotBool Flag>
ReturnString WideCharToUTF8UsingLengthGoverned(const unsigned short* source, unsigned int length,
                                               SmartPtrI<MemoryContract>& contract, Flag replace) = delete;

}  // namespace ZBase
