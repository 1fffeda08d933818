//===- Step.h - One point of one particle track ----------------*- C++ -*-===//
#ifndef TWISS_STEP_H
#define TWISS_STEP_H

#include "Geometry.h"

#include <cstring>

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

/// Whether two steps hold the same values to the bit: a NaN equals a NaN of the same
/// bits, 0 and -0 differ. Two ways of reading one line must agree in this sense.
inline bool operator==(const Step &a, const Step &b) {
  const double ofA[] = {a.position.x, a.position.y, a.position.z, a.momentum.x,
                        a.momentum.y, a.momentum.z, a.t,          a.extraValue};
  const double ofB[] = {b.position.x, b.position.y, b.position.z, b.momentum.x,
                        b.momentum.y, b.momentum.z, b.t,          b.extraValue};
  return memcmp(ofA, ofB, sizeof ofA) == 0 && a.PDGid == b.PDGid && a.EventID == b.EventID &&
         a.TrackID == b.TrackID && a.extraID == b.extraID;
}

#endif // TWISS_STEP_H
