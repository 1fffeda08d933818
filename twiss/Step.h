//===- Step.h - One point of one particle track ----------------*- C++ -*-===//
#ifndef TWISS_STEP_H
#define TWISS_STEP_H

#include "Geometry.h"

/// One line of AllTracks.txt. The twelfth column is stored right after t.
struct Step {
  Nexil::Point position;  ///< columns 1-3, global, millimetres
  Nexil::Vector momentum; ///< columns 4-6, in the file's unit
  double t;               ///< column 7, in the file's unit
  double extraValue;      ///< column 12
  int PDGid;              ///< column 8
  int EventID;            ///< column 9
  int TrackID;            ///< column 10
  int extraID;            ///< column 11
};

#endif // TWISS_STEP_H
