#include "immersed/stepend.hpp"

#include "driver/fields.hpp"

namespace rl {

// Copies the velocities and the face flags into their old arrays for the
// next step, over 0..n+1 in every direction: the layers at index -1 of the
// staggered directions are left as they are, and the centre flags have no
// old copy.  One serial pass, six row copies per row.
void SAVEOLD() {
  const int I = imax, J = jmax, K = kmax;
  for (int k = 0; k <= K + 1; ++k) {
    for (int j = 0; j <= J + 1; ++j) {
      const double* ur = u.at(0, j, k);
      const double* vr = v.at(0, j, k);
      const double* wr = w.at(0, j, k);
      double* uor = uo.at(0, j, k);
      double* vor = vo.at(0, j, k);
      double* wor = wo.at(0, j, k);
      const int* fu = flagu.at(0, j, k);
      const int* fv = flagv.at(0, j, k);
      const int* fw = flagw.at(0, j, k);
      int* fuo = flaguo.at(0, j, k);
      int* fvo = flagvo.at(0, j, k);
      int* fwo = flagwo.at(0, j, k);
      for (int i = 0; i <= I + 1; ++i) {
        uor[i] = ur[i];
        vor[i] = vr[i];
        wor[i] = wr[i];
        fuo[i] = fu[i];
        fvo[i] = fv[i];
        fwo[i] = fw[i];
      }
    }
  }
}

// Sets u, v, w and nut to zero at every solid position (flag exactly -1) of
// their own flag field, over 0..n+1 in every direction.  Forcing points
// (flag 0) keep their values.  Serial.
void ZEROFLAGGED() {
  const int I = imax, J = jmax, K = kmax;
  for (int k = 0; k <= K + 1; ++k) {
    for (int j = 0; j <= J + 1; ++j) {
      double* ur = u.at(0, j, k);
      double* vr = v.at(0, j, k);
      double* wr = w.at(0, j, k);
      double* nr = nut.at(0, j, k);
      const int* fu = flagu.at(0, j, k);
      const int* fv = flagv.at(0, j, k);
      const int* fw = flagw.at(0, j, k);
      const int* fc = flagc.at(0, j, k);
      for (int i = 0; i <= I + 1; ++i) {
        if (fu[i] == -1) ur[i] = 0.0;
        if (fv[i] == -1) vr[i] = 0.0;
        if (fw[i] == -1) wr[i] = 0.0;
        if (fc[i] == -1) nr[i] = 0.0;
      }
    }
  }
}

}  // namespace rl
