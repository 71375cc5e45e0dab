// First-order recursive smoother: y = b*x - a*y, with a = 1/c - 1, b = 1/c
// for a length of c steps.
#pragma once

#include <cmath>
#include <limits>

namespace vora {

class OnePoleSmoother {
public:
  // Sets the length c (in steps) and the start value y0. The state becomes
  // y0 / (-a), so the first output for an input x is x/c + y0: that
  // asymmetry is kept on purpose. A length of 0 passes the input through.
  // Lengths strictly between 0 and 0.5 behave as a length of 1, which starts
  // at y0 instead of 0/-0; any other length follows the formulas as given.
  void initialise(float lengthSteps, float startValue) {
    lengthSteps_ = lengthSteps;
    initialised_ = true;
    const float c = (lengthSteps > 0.0f && lengthSteps < 0.5f) ? 1.0f : lengthSteps;
    a_ = 1.0f / c - 1.0f;
    b_ = a_ + 1.0f;
    y_ = a_ == 0.0f ? startValue : startValue / -a_;
  }

  float step(float x) {
    if (std::isinf(a_)) {
      y_ = x;
    } else {
      y_ = epsilon_ + (b_ * x - a_ * y_);
    }
    // A tiny offset of alternating sign keeps the state out of denormals.
    epsilon_ = -epsilon_;
    return y_;
  }

  // The length exactly as it was last initialised; NaN before the first
  // initialisation, since a smoother that was never set up has no length.
  float length() const { return lengthSteps_; }

  // Whether the smoother was initialised with a length within 0.001 steps of
  // `lengthSteps`. Never true before the first initialisation, whatever the
  // wanted length: the first use always sets the smoother up.
  bool hasLength(float lengthSteps) const { return initialised_ && !(std::fabs(lengthSteps_ - lengthSteps) > 0.001f); }

  float state() const { return y_; }
  // The coefficients of y = b*x - a*y, for code that steps several
  // smoothers at once.
  float a() const { return a_; }
  float b() const { return b_; }
  // The denormal guard's next offset, for code that steps several smoothers
  // at once and must match step() bit for bit.
  float epsilon() const { return epsilon_; }
  void setState(float y) { y_ = y; }

private:
  float a_ = 0.0f;
  float b_ = 0.0f;
  float y_ = 0.0f;
  float epsilon_ = 1e-20f;
  float lengthSteps_ = std::numeric_limits<float>::quiet_NaN();
  bool initialised_ = false;
};

} // namespace vora
