#pragma once

#include <cstddef>

namespace ZBase::os {

// Text is written, with a terminator, into a buffer with space for `capacity` units. If it does not fit the
// call fails. Every failure sets the last code.

/// The name of the computer, and its name in the DNS without the domain.
bool GetHostName(unsigned short* name, unsigned int capacity);
bool GetDnsHostName(unsigned short* name, unsigned int capacity);

/// The DNS domain of the computer; empty if it is in none.
bool GetDnsDomain(unsigned short* domain, unsigned int capacity);

unsigned int ProcessorCount();

/// The account of this process; null for none.
using Token = void*;

/// Null on failure.
Token OpenProcessToken();
void CloseToken(Token token);

/// Writes the security identifier of the token's user into `user`, which has space for `capacity` octets.
/// Always sets `length` to the octets needed. With too little space it fails with the last code 122.
bool GetTokenUser(Token token, void* user, unsigned int capacity, unsigned int& length);

/// The use of an account that belongs to a person or a service.
inline constexpr unsigned int kUserAccount = 1;

/// Looks up the account of a security identifier on this computer. Last code 1332: there is none.
bool LookupAccount(const void* user, unsigned short* name, unsigned short* domain, unsigned int capacity,
                   unsigned int& use);

}  // namespace ZBase::os
