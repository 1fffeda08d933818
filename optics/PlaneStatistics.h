//===- PlaneStatistics.h - What the optics tool keeps per plane -*- C++ -*-===//
//
// Counts and weighted centred moments of the crossings of one plane, in the plane's
// frame. Horizontal and vertical each keep (position mm, angle mrad, |P| MeV/c,
// canonical momentum Px/(m c) in mrad) up to the fourth order, which the errors of
// second-order quantities need; time and kinetic energy keep second-order moments.
//
//===----------------------------------------------------------------------------===//
#ifndef OPTICS_PLANESTATISTICS_H
#define OPTICS_PLANESTATISTICS_H

#include "Moments.h"

#include <QJsonObject>

/// One counted crossing of a plane, in the plane's frame.
struct OpticsCrossing {
  double x, xp, y, yp; ///< mm and mrad (Px/Pz, Py/Pz)
  double p;            ///< |P|, MeV/c
  double qx, qy;       ///< Px/(m c), Py/(m c), mrad; 0 when the mass is unknown
  double t;            ///< ns
  double kinetic;      ///< MeV; 0 when the mass is unknown
  double weight;
  int pdgid;
  bool massKnown; ///< a known species with a mass
};

/// The counts and moments of one plane.
class PlaneStatistics {
public:
  /// Coordinates of the horizontal and vertical moments.
  enum Coordinate { Position, Angle, Momentum, Canonical };
  /// Coordinates of the time moments.
  enum TimeCoordinate { Time, Kinetic };

  long n = 0;       ///< crossings counted (forward, or both directions), within the cut
  long nBack = 0;   ///< backward crossings within the cut, not counted
  long leftOut = 0; ///< counted, but left out of the moments: weight not positive or a
                    ///< value not finite
  bool anySpecies = false;
  int species = 0; ///< the first species counted
  bool mixedSpecies = false;
  bool unknownSpecies = false; ///< a species without a known mass was counted
  Moments horizontal{4, 4}, vertical{4, 4}, time{2, 2};

  /// Counts one crossing and adds it to the moments.
  void add(const OpticsCrossing &crossing);
  /// Adds the counts and moments of the same plane seen elsewhere.
  void merge(const PlaneStatistics &other);
  /// Every count and moment, doubles as hexadecimal floats (exact).
  QJsonObject toJson() const;
  /// Reads what toJson wrote; false if something is missing or malformed.
  bool fromJson(const QJsonObject &object);
};

#endif // OPTICS_PLANESTATISTICS_H
