/// @file
/// Curves of what `nodevik --json monitor` and `nodevik --json decode` have written: a JSON object for each frame.
///
///     {"time":1764000000.25,"bus":"can0","id":"0x185","length":2,"data":"2a01","kind":"tpdo1","node":5}
///
/// Curves are, in this order:
/// - each object that is named in the frames, under its node's number and its name: "5 Motor speed";
/// - for an identifier without such objects, each byte that is not always the same: "0x185 byte 0";
/// - for each identifier, how many frames there have been so far: "0x185 frames". The line is as steep as they are
///   frequent, and flat where they fail to come. With more than one bus the bus stands before the identifier.
///
/// Of these, the first #shown_curves are shown at first, counts only where there is nothing else.

#ifndef TOOLS_PLOT_VIEW_FRAMERECORDING_H
#define TOOLS_PLOT_VIEW_FRAMERECORDING_H

#include <string_view>

#include "tools/plot_view/plotfile.h"

namespace plot {

/// How many curves of a recording of frames are shown at first.
constexpr std::size_t shown_curves = 16;

/// Reads a recording of frames.
/// @param text  all of it
/// @return      the curves; lines that are no frames are left out and noted
/// @throws BadFile  there is no frame in it
Recording read_frames(std::string_view text);

}  // namespace plot

#endif
