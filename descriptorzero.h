/// @file
/// Keeps descriptor 0 taken.
///
/// The serial line counts descriptor 0 as "not open", and closing a line that is not open closes descriptor
/// 0. Both are harmless as long as that descriptor is nobody's: the application puts /dev/null there when it
/// starts, and puts it back wherever a line may have closed it. A read of it gives 0 bytes, a write is
/// swallowed, and no device can be opened under that number.

#ifndef DESCRIPTORZERO_H
#define DESCRIPTORZERO_H

/// Opens /dev/null for reading and writing as descriptor 0 if that descriptor is free; otherwise does
/// nothing.
void fill_descriptor_zero();

/// Puts /dev/null, for reading and writing, in the place of whatever descriptor 0 is. For the start of a
/// program.
void put_null_on_descriptor_zero();

/// Puts /dev/null, for reading and writing, in the place of whatever an open descriptor is. A serial line
/// that is closed in this way keeps its settings. Without /dev/null nothing is done.
void put_null_on_descriptor(int descriptor);

#endif
