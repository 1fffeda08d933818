//===- Twiss.cpp - Beam statistics of one sampling plane -------------------===//

#include "Twiss.h"

#include "Console.h"

#include <cmath>
#include <cstdio>

Twiss::Twiss(int s) : s(s), entries(0), sumX(0), sumX2(0), sumY(0), sumY2(0) {}

void Twiss::calculate(Step &crossing) {
  const Nexil::Point &p = crossing.position;
  if (Debug)
    fprintf(stderr, "BCSample::calculate s=%d pos=%.3f,%.3f,%.3f mom=%.3f,%.3f,%.3f\n", s, p.x, p.y,
            p.z, crossing.momentum.x, crossing.momentum.y, crossing.momentum.z);
  add(p.x, p.y);
}

QString Twiss::result() {
  double meanX = 0, sigmaX = 0, meanY = 0, sigmaY = 0;
  if (entries > 0) {
    // Population widths; rounding may make the radicand slightly negative, giving NaN.
    meanX = sumX / entries;
    sigmaX = sqrt(sumX2 / entries - meanX * meanX);
    meanY = sumY / entries;
    sigmaY = sqrt(sumY2 / entries - meanY * meanY);
  }
  QString text;
  text += QString::asprintf("meanX_%d=%.6gmm\n", s, meanX);
  text += QString::asprintf("sigmaX_%d=%.6gmm\n", s, sigmaX);
  text += QString::asprintf("meanY_%d=%.6gmm\n", s, meanY);
  text += QString::asprintf("sigmaY_%d=%.6gmm\n", s, sigmaY);
  text += QString::asprintf("entries_%d=%d\n", s, entries);
  return text;
}
