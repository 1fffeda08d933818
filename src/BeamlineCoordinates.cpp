//===- BeamlineCoordinates.cpp - The beamline coordinate system ------------===//

#include "BeamlineCoordinates.h"

#include "Assert.h"
#include "Console.h"
#include "Constinit.h"
#include "RegExp.h"

#include <QCoreApplication>
#include <algorithm>

namespace Nexil {

NEXIL_CONSTINIT QList<BCSegment *> BeamlineCoordinates::segments;
NEXIL_CONSTINIT QList<Point> BeamlineCoordinates::segmentPoints;
NEXIL_CONSTINIT QList<double> BeamlineCoordinates::factors;
double BeamlineCoordinates::nextS = 0;
bool BeamlineCoordinates::enableSampleS = false;
NEXIL_CONSTINIT QHash<int, double> BeamlineCoordinates::sampleS;
double BeamlineCoordinates::tolerance = 1e-6;

void BeamlineCoordinates::clear() {
  qDeleteAll(segments);
  segments.clear();
  segmentPoints.clear();
  factors.clear();
  sampleS.clear();
  nextS = 0;
  enableSampleS = false;
}

void BeamlineCoordinates::addSegment(BCSegment *seg) {
  segments.append(seg);
}

bool BeamlineCoordinates::lessthan(const BCSegment *a, const BCSegment *b) {
  return a->s_min < b->s_min;
}

double BeamlineCoordinates::initialS() {
  NEXIL_ASSERT_X(!segments.isEmpty(), "QList::at", "index out of range");
  return segments[0]->s_min;
}

BCSegment *BeamlineCoordinates::bcSegment(double s) {
  if (segments.isEmpty())
    throw QString("INTERNAL ERROR: No BCSegments");
  for (BCSegment *seg : segments)
    if (seg->s_min <= s && s <= seg->s_max)
      return seg;
  Console.printf("INTERNAL ERROR: No BCSegment for s=%.3f\n", s);
  write("-");
  QCoreApplication::processEvents();
  throw QString("INTERNAL ERROR: No BCSegment for s=%1").arg(s);
}

Transform BeamlineCoordinates::getTransform(double s) {
  return bcSegment(s)->getTransform(s);
}

Point BeamlineCoordinates::global2BC(Point p) {
  NEXIL_ASSERT(segments.size() > 0);
  double best_s = 0, best = 1e6;
  for (int i = 0; i < segments.size(); ++i) {
    BCSegment *seg = segments[i];
    double d0 = seg->startLine.direction.dot(p - seg->startLine.point);
    if (d0 < 0)
      continue; // before the segment's start plane
    double s;
    if (i != segments.size() - 1) {
      const Line &next = segments[i + 1]->startLine;
      if (next.direction.dot(p - next.point) > 0)
        continue; // beyond the next segment's start plane
      double d1 = seg->endLine.direction.dot(p - seg->endLine.point);
      if (d1 > 0)
        d1 = 0;
      if (d0 - d1 >= tolerance)
        s = seg->s_min + (d0 / (d0 - d1)) * (seg->s_max - seg->s_min);
      else
        s = seg->s_min;
    } else {
      s = seg->s_min + d0;
    }
    Transform t = seg->getTransform(s);
    double dist = (t.inverse() * (p - t.origin())).norm();
    if (dist < best) {
      best = dist;
      best_s = s;
    }
  }
  Transform t = getTransform(best_s);
  Vector local = t.inverse() * (p - t.origin());
  return Point(local.x, local.y, best_s);
}

double BeamlineCoordinates::getClosestS(Line line) {
  NEXIL_ASSERT(segments.size() > 0);
  Vector d = line.direction;
  d.normalize();
  const Point &p = line.point;
  double best_s = 0, best = 1e6;
  for (int i = 0; i + 1 < segmentPoints.size(); ++i) {
    const Point &a = segmentPoints[i];
    Vector u = segmentPoints[i + 1] - a;
    u.normalize();
    Vector w = p - a;
    double c = u.dot(d);
    if (fabs(c) > 0.99)
      continue; // nearly parallel to the chord
    double t = (w.dot(u) - w.dot(d) * c) / (1 - c * c);
    BCSegment *seg = segments[i];
    double s = t * factors[i] + seg->s_min;
    if (s < seg->s_min)
      s = seg->s_min;
    if (s > seg->s_max)
      s = seg->s_max;
    double dist = line.distanceToPoint(getTransform(s).origin());
    if (dist < best) {
      best = dist;
      best_s = s;
    }
  }
  return best_s;
}

QStringList BeamlineCoordinates::getCmdlines() {
  QStringList lines;
  for (BCSegment *seg : segments) {
    if (seg->isSubdivide || seg->cmdline.isEmpty())
      continue;
    QString line = seg->cmdline;
    if (!RE.match("\\ss=", line))
      line += " s=" + QString::number(seg->s_min, 'g', 6) + "m";
    lines.append(line);
  }
  return lines;
}

void BeamlineCoordinates::dump() {
  // A lookup that fails inside the dump dumps again; once is enough. (A segment whose
  // s is NaN is in no segment, not even its own.)
  static bool dumping = false;
  if (dumping)
    return;
  dumping = true;
  struct Done {
    ~Done() { dumping = false; }
  } done;
  for (const QString &line : getCmdlines())
    Console.printf("%s\n", line.toLocal8Bit().constData());
  for (int i = 0; i < segments.size(); ++i) {
    BCSegment *seg = segments[i];
    Console.printf("segment[%d]: %s s_min=%.6f s_max=%.6f isSubdivide=%s\n", i,
                   dynamic_cast<ArcBCSegment *>(seg) ? "arc" : "   ", seg->s_min, seg->s_max,
                   seg->isSubdivide ? "T" : "F");
    Console.printf("             Transform: %s\n",
                   getTransform(seg->s_min).toString().toLocal8Bit().constData());
  }
}

void BeamlineCoordinates::finish(double expectedStart) {
  std::stable_sort(segments.begin(), segments.end(), lessthan);
  Transform t;
  segmentPoints.append(t.origin());
  for (int i = 0; i < segments.size(); ++i) {
    const bool last = i == segments.size() - 1;
    double next = last ? 1e6 : segments[i + 1]->s_min;
    t = segments[i]->complete(next, t);
    BCSegment *seg = segments[i];
    if (seg->s_max - seg->s_min >= tolerance) {
      if (seg->s_min >= seg->s_max + tolerance) {
        Console.printf("INTERNAL ERROR: overlapping BC segments");
        write("-");
        Console.printf("segments[%d] s_min=%.6f s_max=%.6f\n", i, seg->s_min, seg->s_max);
        throw QString("INTERNAL ERROR: overlapping BC segments");
      }
      segmentPoints.append(t.origin());
      if (!last)
        factors.append((segments[i + 1]->s_min - seg->s_min) /
                       segmentPoints[i].distanceTo(segmentPoints[i + 1]));
    } else {
      // A kink or an empty piece: its rotation stays in t, the segment goes.
      delete seg;
      segments.removeAt(i);
      --i;
    }
  }
  factors.append(1.0);
  for (int j = 0; j + 1 < segments.size(); ++j)
    segments[j]->s_max = segments[j + 1]->s_min;
  if (!(initialS() == expectedStart))
    throw QString("INTERNAL ERROR: %bcstart not smallest value of s");
}

} // namespace Nexil
