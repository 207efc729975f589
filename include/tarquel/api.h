// What the policy server finds in the library. cmake/exports.map lists the same symbols.
#pragma once

#define TARQUEL_API __attribute__((visibility("default")))
