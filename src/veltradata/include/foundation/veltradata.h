// The host array library: value-type arrays with shared, copy-on-write,
// column-major storage; typed views and element references; the factory; the
// visitor over all types. Include this header only.
//
// Conventions kept everywhere:
//  - Narrow text (std::string, const char*) is UTF-8. CharArray::toAscii
//    encodes code units above 127 as UTF-8 (ASCII unchanged, surrogate pairs
//    combined); createCharArray(std::string) decodes UTF-8. The one exception
//    is createArray over a range of std::string, which accepts ASCII only.
//  - Dimensions read from an array have at least two entries. A factory list
//    of one entry n gives 1 by n. createCharArray of empty text is 1 by 0.
//  - New arrays: numbers zero, strings missing, cells and struct fields hold
//    empty 0 by 0 DOUBLE arrays until assigned.
//  - A missing string is not an empty string; reading a missing one as text
//    throws MissingStringException (read it as VELTRAString to test it).
//  - Every misuse (wrong view, index past the end, unknown field, wrong
//    element count, bad buffer) throws a class derived from Exception.
#pragma once

#include "foundation/veltradata/array.h"
#include "foundation/veltradata/exceptions.h"
#include "foundation/veltradata/factory.h"
#include "foundation/veltradata/references.h"
#include "foundation/veltradata/shared_memory.h"
#include "foundation/veltradata/typed_array.h"
#include "foundation/veltradata/types.h"
#include "foundation/veltradata/visit.h"
