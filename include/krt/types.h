// Fixed-width types of every record the tool exchanges with the driver and
// the controller. Shared by the tool and the simulator.
#pragma once

#include <cstddef>
#include <cstdint>

using KRT_U8 = std::uint8_t;
using KRT_U16 = std::uint16_t;
using KRT_U32 = std::uint32_t;
using KRT_U64 = std::uint64_t;

// Checks a wire record's size and the offset of a field the program reads.
#define KRT_CHECK_SIZE(type, size) static_assert(sizeof(type) == (size), #type " size")
#define KRT_CHECK_OFFSET(type, field, off) static_assert(offsetof(type, field) == (off), #type "." #field " offset")
