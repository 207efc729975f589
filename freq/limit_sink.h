// The frequency manager's way back to what applies its results.
#pragma once

namespace tarquel {

class LimitSink {
  public:
    // Applies `tagLen` arbitrated values in order; what cannot be applied is logged and left out.
    // Called with the frequency manager's mutex held.
    virtual void DoRealPerfSetConfig(int clientId, int tagLen, const int* tags,
                                     const int* newConfigs) = 0;

  protected:
    ~LimitSink() = default;
};

}  // namespace tarquel
