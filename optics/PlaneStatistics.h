//===- PlaneStatistics.h - What the optics tool keeps per plane -*- C++ -*-===//
//
// Counts and weighted centred moments of the crossings of one plane, in the plane's
// frame. Horizontal and vertical each keep (position mm, angle mrad, |P| MeV/c) and
// (position, canonical momentum Px/(m c) in mrad) up to the fourth order, which the
// errors of second-order quantities need; time and kinetic energy keep second-order
// moments.
//
//===----------------------------------------------------------------------------===//
#ifndef OPTICS_PLANESTATISTICS_H
#define OPTICS_PLANESTATISTICS_H

#include "Moments.h"

#include <QJsonObject>
#include <vector>

/// One counted crossing of a plane, in the plane's frame.
struct OpticsCrossing {
  double x, xp, y, yp; ///< mm and mrad (Px/Pz, Py/Pz)
  double p;            ///< |P|, MeV/c
  double px, py, pz;   ///< P in the plane's frame, MeV/c
  double qx, qy;       ///< Px/(m c), Py/(m c), mrad; 0 when the mass is unknown
  double t;            ///< ns
  double kinetic;      ///< MeV; 0 when the mass is unknown
  double weight;
  int pdgid;
  int charge;     ///< of the species, in e; 0 when unknown
  bool massKnown; ///< a known species with a mass
};

/// The values of a crossing that moments may be kept of.
/// The last two are made of the others: the angular momentum about the path, x Py - y Px
/// (mm MeV/c), and the charge times the squared distance from it, q (x^2 + y^2) (e mm^2).
enum class CrossingValue { X, XP, Y, YP, P, QX, QY, T, Energy, AngularMomentum, ChargedRadius2 };

/// Moments a measure needs of every crossing: of these values, with squared-weight sums up
/// to `order` (2 to 4). Sets with the same name are the same set.
struct MomentSet {
  const char *name; ///< its name in a moments file
  std::vector<CrossingValue> coordinates;
  int order;
};

/// The counts and moments of one plane.
class PlaneStatistics {
public:
  /// Coordinates of the horizontal and vertical moments.
  enum Coordinate { Position, Angle, Momentum };
  /// Coordinates of the canonical moments (position first, as above).
  enum CanonicalCoordinate { Canonical = 1 };
  /// Coordinates of the time moments.
  enum TimeCoordinate { Time, Kinetic };

  /// The sets of moments of today's transverse and time columns, which every plane keeps.
  static const std::vector<const MomentSet *> &basicSets();

  /// A plane that keeps the basic sets.
  PlaneStatistics();
  /// A plane that keeps these sets of moments.
  explicit PlaneStatistics(const std::vector<const MomentSet *> &sets);

  long n = 0;       ///< crossings counted (forward, or both directions), within the cut
  long nBack = 0;   ///< backward crossings within the cut, not counted
  long leftOut = 0; ///< counted, but left out of the moments: weight not positive or a
                    ///< value not finite
  bool anySpecies = false;
  int species = 0; ///< the first species counted
  bool mixedSpecies = false;
  bool unknownSpecies = false; ///< a species without a known mass was counted

  /// Counts one crossing and adds it to the moments; false when it is left out of them.
  bool add(const OpticsCrossing &crossing);
  /// Adds the counts and moments of the same plane seen elsewhere, which keeps the same
  /// sets.
  void merge(const PlaneStatistics &other);
  /// Whether every count, added to the other's, stays within a moments file's counts.
  bool fitsWith(const PlaneStatistics &other) const;
  /// The sets of moments the plane keeps, each under its name in a moments file.
  const std::vector<const MomentSet *> &sets() const { return momentSets; }
  /// Keeps only the sets of the list; the others are let go.
  void keepOnly(const std::vector<const MomentSet *> &sets);
  /// The stored numbers of set i (Moments::state()), and the set made from them; false
  /// if their count does not fit.
  std::vector<double> momentState(size_t set) const;
  bool setMomentState(size_t set, const std::vector<double> &numbers);
  /// The moments of a set the plane keeps, settled.
  const Moments &momentsOf(const MomentSet &set) const;

  /// Every count and moment, doubles as hexadecimal floats (exact).
  QJsonObject toJson() const;
  /// Reads what toJson wrote; false if something is missing or malformed.
  bool fromJson(const QJsonObject &object);

  /// Moments of (x, x', |P|) and (y, y', |P|).
  const Moments &horizontal() const { return settled(moments[0]); }
  const Moments &vertical() const { return settled(moments[1]); }
  /// Moments of (x, Px/(m c)) and (y, Py/(m c)).
  const Moments &horizontalCanonical() const { return settled(moments[2]); }
  const Moments &verticalCanonical() const { return settled(moments[3]); }
  /// Moments of (t, kinetic energy).
  const Moments &time() const { return settled(moments[4]); }

private:
  static constexpr int Block = 32;
  /// The values of a crossing that the moments take, in blocks, in the order of
  /// CrossingValue: up to the energy, then the values made of the others, kept only
  /// where a set of the plane takes them.
  static constexpr int Columns = int(CrossingValue::ChargedRadius2) + 1;
  /// The values of the crossing itself, which every plane keeps.
  static constexpr int OwnColumns = int(CrossingValue::Energy) + 1;

  std::vector<const MomentSet *> momentSets;
  int width; ///< the values kept of each crossing: up to the energy, or all
  // The crossings not yet added are a cache of the moments, flushed before any read.
  // Its room is taken by the first crossing and given back by a flush before a read, so
  // that a plane without crossings, or with its moments settled, holds only the moments.
  mutable std::vector<Moments> moments;
  mutable std::vector<double> pending; ///< the values of each crossing, one after another
  /// Their weights, kept from the first weight other than 1 on: most runs weigh every
  /// crossing 1, and a block of ones needs no room of its own.
  mutable std::vector<double> pendingWeights;
  mutable int pendingCount = 0;

  /// Adds the pending crossings to the moments.
  void addPending() const;
  /// Adds the pending crossings to the moments and gives their room back.
  void flush() const;
  const Moments &settled(const Moments &m) const {
    flush();
    return m;
  }
};

#endif // OPTICS_PLANESTATISTICS_H
