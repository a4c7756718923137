// The element table of the structure layer: symbol, mass, radius codes and name of every
// element from the dummy (index 0) to lawrencium (103), the covalent bond radii used by the
// bond search, and the lookups between symbols, indices, masses and radii.
#include <cctype>
#include <cmath>

#include "fileio.h"

// Index = atomic number; entry 0 is the dummy element with a blank symbol.
// Fields: symbol, mass, radius code A, radius code B, colour code, 0, name.
const Element Elements_m[NELEMENTS] = {
    {"  ", 0.0, 180, 360, 12, 0, ""},  // 0
    {"H ", 1.00794, 80, 275, 4, 0, "HYDROGEN"},  // 1
    {"He", 4.0026, 400, 550, 5, 0, "HELIUM"},  // 2
    {"Li", 6.941, 170, 305, 14, 0, "LITHIUM"},  // 3
    {"Be", 9.01218, 88, 157, 12, 0, "BERYLLIUM"},  // 4
    {"B ", 10.811, 208, 387, 13, 0, "BORON"},  // 5
    {"C ", 12.011, 180, 387, 0, 0, "CARBON"},  // 6
    {"N ", 14.0067, 170, 350, 1, 0, "NITROGEN"},  // 7
    {"O ", 15.9994, 170, 337, 2, 0, "OXYGEN"},  // 8
    {"F ", 18.9984, 160, 325, 6, 0, "FLUORINE"},  // 9
    {"Ne", 20.1797, 280, 505, 12, 0, "NEON"},  // 10
    {"Na", 22.98977, 243, 550, 7, 0, "SODIUM"},  // 11
    {"Mg", 24.305, 275, 375, 15, 0, "MAGNESIUM"},  // 12
    {"Al", 26.98154, 338, 375, 9, 0, "ALUMINIUM"},  // 13
    {"Si", 28.0855, 300, 550, 6, 0, "SILICON"},  // 14
    {"P ", 30.97376, 259, 470, 8, 0, "PHOSPHORUS"},  // 15
    {"S ", 32.066, 255, 452, 3, 0, "SULPHUR"},  // 16
    {"Cl", 35.4527, 250, 437, 13, 0, "CHLORINE"},  // 17
    {"Ar", 39.948, 392, 692, 12, 0, "ARGON"},  // 18
    {"K ", 39.0983, 332, 597, 12, 0, "POTASSIUM"},  // 19
    {"Ca", 40.078, 248, 487, 9, 0, "CALCIUM"},  // 20
    {"Sc", 44.9559, 360, 330, 12, 0, "SCANDIUM"},  // 21
    {"Ti", 47.88, 368, 487, 9, 0, "TITANIUM"},  // 22
    {"V ", 50.9415, 332, 265, 12, 0, "VANADIUM"},  // 23
    {"Cr", 51.996, 338, 282, 9, 0, "CHROMIUM"},  // 24
    {"Mn", 54.938, 338, 297, 9, 0, "MANGANESE"},  // 25
    {"Fe", 55.847, 335, 487, 8, 0, "IRON"},  // 26
    {"Co", 58.9332, 332, 282, 12, 0, "COBALT"},  // 27
    {"Ni", 58.6934, 405, 310, 10, 0, "NICKEL"},  // 28
    {"Cu", 63.546, 380, 287, 10, 0, "COPPER"},  // 29
    {"Zn", 65.39, 362, 287, 10, 0, "ZINC"},  // 30
    {"Ga", 69.723, 305, 387, 12, 0, "GALLIUM"},  // 31
    {"Ge", 72.61, 292, 999, 12, 0, "GERMANIUM"},  // 32
    {"As", 74.9216, 302, 207, 12, 0, "ARSENIC"},  // 33
    {"Se", 78.96, 305, 225, 12, 0, "SELENIUM"},  // 34
    {"Br", 79.904, 302, 437, 10, 0, "BROMINE"},  // 35
    {"Kr", 83.8, 400, 475, 12, 0, "KRYPTON"},  // 36
    {"Rb", 85.4678, 368, 662, 12, 0, "RUBIDIUM"},  // 37
    {"Sr", 87.62, 280, 505, 12, 0, "STRONTIUM"},  // 38
    {"Y ", 88.9059, 445, 402, 12, 0, "YTTRIUM"},  // 39
    {"Zr", 91.224, 390, 355, 12, 0, "ZIRCONIUM"},  // 40
    {"Nb", 92.9064, 370, 332, 12, 0, "NIOBIUM"},  // 41
    {"Mo", 95.94, 368, 437, 12, 0, "MOLYBDENUM"},  // 42
    {"Tc", 98.0, 338, 450, 12, 0, "TECHNETIUM"},  // 43
    {"Ru", 101.07, 350, 300, 12, 0, "RUTHENIUM"},  // 44
    {"Rh", 102.9055, 362, 305, 12, 0, "RHODIUM"},  // 45
    {"Pd", 106.42, 375, 360, 12, 0, "PALLADIUM"},  // 46
    {"Ag", 107.868, 398, 387, 9, 0, "SILVER"},  // 47
    {"Cd", 112.41, 422, 437, 12, 0, "CADMIUM"},  // 48
    {"In", 114.82, 408, 362, 12, 0, "INDIUM"},  // 49
    {"Sn", 118.71, 365, 417, 12, 0, "TIN"},  // 50
    {"Sb", 121.757, 365, 280, 12, 0, "ANTIMONY"},  // 51
    {"Te", 127.6, 368, 315, 12, 0, "TELLURIUM"},  // 52
    {"I ", 126.9045, 350, 437, 11, 0, "IODINE"},  // 53
    {"Xe", 131.29, 425, 525, 12, 0, "XENON"},  // 54
    {"Cs", 132.9054, 418, 752, 12, 0, "CAESIUM"},  // 55
    {"Ba", 137.33, 335, 602, 8, 0, "BARIUM"},  // 56
    {"La", 138.9055, 468, 457, 12, 0, "LANTHANUM"},  // 57
    {"Ce", 140.12, 458, 465, 12, 0, "CERIUM"},  // 58
    {"Pr", 140.9077, 455, 405, 12, 0, "PRASEODYMIUM"},  // 59
    {"Nd", 144.24, 452, 447, 12, 0, "NEODYMIUM"},  // 60
    {"Pm", 145.0, 450, 440, 12, 0, "PROMETHIUM"},  // 61
    {"Sm", 150.36, 450, 435, 12, 0, "SAMARIUM"},  // 62
    {"Eu", 151.965, 498, 490, 12, 0, "EUROPIUM"},  // 63
    {"Gd", 157.25, 448, 422, 12, 0, "GADOLINIUM"},  // 64
    {"Tb", 158.9253, 440, 415, 12, 0, "TERBIUM"},  // 65
    {"Dy", 162.5, 438, 407, 12, 0, "DYSPROSIUM"},  // 66
    {"Ho", 164.9303, 435, 402, 12, 0, "HOLMIUM"},  // 67
    {"Er", 167.26, 432, 397, 12, 0, "ERBIUM"},  // 68
    {"Tm", 168.9342, 430, 392, 12, 0, "THULIUM"},  // 69
    {"Yb", 173.04, 485, 385, 12, 0, "YTTERBIUM"},  // 70
    {"Lu", 174.967, 430, 382, 12, 0, "LUTETIUM"},  // 71
    {"Hf", 178.49, 392, 350, 12, 0, "HAFNIUM"},  // 72
    {"Ta", 180.9479, 358, 305, 12, 0, "TANTALUM"},  // 73
    {"W ", 183.85, 342, 315, 12, 0, "TUNGSTEN"},  // 74
    {"Re", 186.207, 338, 325, 12, 0, "RHENIUM"},  // 75
    {"Os", 190.2, 342, 395, 12, 0, "OSMIUM"},  // 76
    {"Ir", 192.22, 330, 305, 12, 0, "IRIDIUM"},  // 77
    {"Pt", 195.08, 375, 387, 12, 0, "PLATINUM"},  // 78
    {"Au", 196.9665, 375, 362, 6, 0, "GOLD"},  // 79
    {"Hg", 200.59, 425, 495, 12, 0, "MERCURY"},  // 80
    {"Tl", 204.282, 388, 427, 12, 0, "THALLIUM"},  // 81
    {"Pb", 207.2, 385, 540, 12, 0, "LEAD"},  // 82
    {"Bi", 208.9804, 385, 432, 12, 0, "BISMUTH"},  // 83
    {"Po", 209.0, 420, 302, 12, 0, "POLONIUM"},  // 84
    {"At", 210.0, 302, 280, 12, 0, "ASTATINE"},  // 85
    {"Rn", 222.0, 475, 575, 12, 0, "RADON"},  // 86
    {"Fr", 223.0, 450, 810, 12, 0, "FRANCIUM"},  // 87
    {"Ra", 226.0254, 358, 642, 12, 0, "RADIUM"},  // 88
    {"Ac", 227.0, 295, 530, 12, 0, "ACTINIUM"},  // 89
    {"Th", 232.0381, 255, 460, 12, 0, "THORIUM"},  // 90
    {"Pa", 231.0359, 222, 400, 12, 0, "PROTACTINIUM"},  // 91
    {"U ", 238.029, 242, 437, 12, 0, "URANIUM"},  // 92
    {"Np", 237.0482, 238, 427, 12, 0, "NEPTUNIUM"},  // 93
    {"Pu", 244.0, 232, 417, 12, 0, "PLUTONIUM"},  // 94
    {"Am", 243.0, 230, 415, 12, 0, "AMERICIUM"},  // 95
    {"Cm", 247.0, 228, 412, 12, 0, "CURIUM"},  // 96
    {"Bk", 247.0, 225, 410, 12, 0, "BERKELIUM"},  // 97
    {"Cf", 251.0, 222, 407, 12, 0, "CALIFORNIUM"},  // 98
    {"Es", 252.0, 220, 405, 12, 0, "EINSTEINIUM"},  // 99
    {"Fm", 257.0, 218, 402, 12, 0, "FERMIUM"},  // 100
    {"Md", 258.0, 215, 400, 12, 0, "MENDELEVIUM"},  // 101
    {"No", 259.0, 212, 397, 12, 0, "NOBELIUM"},  // 102
    {"Lr", 260.0, 210, 395, 12, 0, "LAWRENCIUM"},  // 103
};

// Covalent bond radius (angstrom) per element index. The dummy gets a radius far beyond any
// cell so that it never bonds; 104 and 105 lie beyond the element table.
const double nw_elem_radius_m[106] = {
    99999.99, 0.35, 1.22, 1.23, 0.89, 0.88, 0.77, 0.72, 0.66, 0.58,  // 0..9
    1.6, 1.4, 1.36, 1.25, 1.17, 1.1, 1.04, 0.99, 1.91, 2.03,  // 10..19
    1.74, 1.44, 1.32, 1.22, 1.19, 1.17, 1.165, 1.16, 1.15, 1.17,  // 20..29
    1.25, 1.25, 1.22, 1.21, 1.17, 1.14, 1.98, 2.22, 1.92, 1.62,  // 30..39
    1.45, 1.34, 1.29, 1.27, 1.24, 1.25, 1.28, 1.34, 1.41, 1.5,  // 40..49
    1.4, 1.41, 1.37, 1.33, 2.09, 2.35, 1.98, 1.69, 1.65, 1.65,  // 50..59
    1.64, 1.65, 1.66, 1.65, 1.61, 1.59, 1.59, 1.58, 1.57, 1.56,  // 60..69
    1.56, 1.56, 1.44, 1.34, 1.3, 1.28, 1.26, 1.26, 1.29, 1.34,  // 70..79
    1.44, 1.55, 1.54, 1.52, 1.53, 1.5, 2.2, 3.24, 2.68, 2.25,  // 80..89
    2.16, 1.93, 1.66, 1.57, 1.81, 2.21, 1.43, 1.42, 1.4, 1.39,  // 90..99
    1.38, 1.37, 1.36, 1.34, 1.3, 1.3,  // 100..105
};

namespace {

// Radius given for a symbol or index that names no element: large enough that such an atom
// bonds to every atom it is tested against, which makes the bad atom visible in the molecules.
constexpr double UNKNOWN_RADIUS = 9999.99;
constexpr int NW_RADII = static_cast<int>(sizeof(nw_elem_radius_m) / sizeof(nw_elem_radius_m[0]));

bool in_table(int index) { return index >= 0 && index < NELEMENTS; }

// First record whose two symbol characters match the text: its first character upper-cased
// and its second lower-cased, or a blank when the text is a single character. Only those two
// characters take part, so "CL", "cl" and "Cl x" all name chlorine; an empty text names nothing.
int lookup_symbol(const char* text) {
  if (text == nullptr || text[0] == '\0') return -1;
  const char c0 = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
  const char c1 =
      text[1] == '\0' ? ' ' : static_cast<char>(std::tolower(static_cast<unsigned char>(text[1])));
  for (int i = 0; i < NELEMENTS; ++i)
    if (Elements_m[i].symbol[0] == c0 && Elements_m[i].symbol[1] == c1) return i;
  return -1;
}

}  // namespace

int FileIO::find_element_index_from_name(const char* symbol) const { return lookup_symbol(symbol); }

double FileIO::find_element_radius_from_name(const char* symbol) const {
  const int i = lookup_symbol(symbol);
  return i < 0 ? UNKNOWN_RADIUS : nw_elem_radius_m[i];
}

// Writes the symbol without its padding blank ("C", "Cl"); an index outside the table gives
// an empty text.
void FileIO::find_element_name_from_index(int index, char* out) const {
  out[0] = '\0';
  if (!in_table(index)) return;
  const char* s = Elements_m[index].symbol;
  out[0] = s[0];
  out[1] = s[1] == ' ' ? '\0' : s[1];
  out[2] = '\0';
}

// Indices outside the table (-1 for an unknown symbol) weigh nothing.
double FileIO::find_element_mass_from_index(int index) const {
  return in_table(index) ? Elements_m[index].mass : 0.0;
}

double FileIO::find_element_radius_from_index(int index) const {
  return in_table(index) ? Elements_m[index].radius_a / 250.0 : UNKNOWN_RADIUS;
}

double FileIO::find_element_radius_from_index_nw(int index) const {
  return index >= 0 && index < NW_RADII ? nw_elem_radius_m[index] : UNKNOWN_RADIUS;
}

// Writes both symbol characters of the first element within 0.1 of the mass ("C " keeps its
// blank). A mass that matches no real element, or only the dummy's, gives "A ".
void FileIO::find_element_name_from_mass(double mass, char* out) const {
  for (int i = 0; i < NELEMENTS; ++i) {
    if (std::fabs(Elements_m[i].mass - mass) < 0.1) {
      if (i == 0) break;
      out[0] = Elements_m[i].symbol[0];
      out[1] = Elements_m[i].symbol[1];
      out[2] = '\0';
      return;
    }
  }
  out[0] = 'A';
  out[1] = ' ';
  out[2] = '\0';
}
