// `ferrotip repair` for dropouts and for many regions at once: the gap filler
// ("inpaint"), the choice by length ("auto"), or one of the module's methods, on one
// region or on every region of a list (label track, CSV or JSON). All regions are
// checked before anything is written; overlapping or adjacent ones are merged; the
// file is streamed, each region repaired from a window around it that already holds
// the repairs before it, and the output written through a temporary file.
#pragma once

#include <string>

#include "RegionPlan.h"

struct RegionRequest {
    std::string input, output;
    std::string method = "auto";  // "auto", "inpaint", or a module method's number or name
    std::string start, length;    // one region, or
    std::string regionsFile;      // a list of regions
};

// Throws CliError with a one-line reason when anything is wrong.
void repairRegions(const RegionRequest& request);
