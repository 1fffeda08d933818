//===- VectorState.h - Scalar arithmetic free of wide registers' leftovers -*- C++ -*-===//
//
// The tool is compiled for the baseline instruction set: its floating-point arithmetic
// writes the low halves of the vector registers. Where the processor has wider ones and
// something before (the C library's or Qt's wide copies and searches) left their upper
// halves in use, every such instruction waits on the whole register: the loops over a
// plane's crossings ran at two thirds of their speed. Clearing the upper halves before
// them removes the wait.
//
//===----------------------------------------------------------------------------===//
#ifndef OPTICS_VECTORSTATE_H
#define OPTICS_VECTORSTATE_H

/// Clears the upper halves of the vector registers where the processor has them; does
/// nothing elsewhere.
void clearUpperVectorState();

#endif // OPTICS_VECTORSTATE_H
