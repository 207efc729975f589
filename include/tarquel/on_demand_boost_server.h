// The policy server's on-demand boost service; the server defines both members.
#pragma once

class OnDemandBoostServer {
  public:
    static OnDemandBoostServer& getInstance();

    // The duration that the server wants for this boost instead of the configured one.
    //   duration  ms, as configured
    //   payload   the request's payload, or null
    //   Returns   ms; below 1 keeps the configured duration
    int GetDuration(int cmdId, int duration, const int* payload);
};
