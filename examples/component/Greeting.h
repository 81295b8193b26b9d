#pragma once

/// The component's export besides its initialiser: a greeting of at most `capacity` - 1 octets for `name`.
using Greet = void (*)(const char* name, char* greeting, unsigned int capacity);
