// The Identify displays of the identify command.
#pragma once

#include "krt/identify.h"

// Identify Controller data as labelled lines under a heading.
void _showIDDetail(const _krt_id_ctrl &id);
// Identify Namespace data of namespace `nsid` as labelled lines, with its
// LBA formats.
void _showNSDetail(const _krt_id_ns &ns, KRT_U32 nsid);
