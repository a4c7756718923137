// A symmetry operation of a crystal file read from its text: rotation R and translation t, so
// that the image of a fractional position f is R f + t. The text is either three components
// such as "-x+1/2,y,-z" or, without commas, twelve numbers (a row of R and its t, three times).
#pragma once
#include <string>

struct SymmetryOperation {
  double R[3][3] = {};  // row k gives component k of the image
  double t[3] = {};     // in fractions of the cell, brought into [0, 1)
};

// The operation of `text`. Entries that the text does not set keep their value in `start`
// (zero unless given); every t_k is then brought into [0, 1) by one shift.
SymmetryOperation parse_symmetry_operation(const std::string& text,
                                           const SymmetryOperation& start = SymmetryOperation());

// Brings a translation or fractional component into [0, 1) by one shift.
inline double shift_into_cell(double v) {
  if (v < 0.0) return v + 1.0;
  if (v >= 1.0) return v - 1.0;
  return v;
}
