#ifndef AV_LIGHTING_CLIENT_H_
#define AV_LIGHTING_CLIENT_H_

namespace morvane::ap {

// The light ring's two state-setting calls of the light-control library,
// behind an interface so that the lighting manager can be given a fake.
// Arguments are forwarded as they are and results returned unchanged: no
// clamping, caching or retry.
class LightingClient {
 public:
  LightingClient() = default;
  LightingClient(const LightingClient&) = delete;
  LightingClient& operator=(const LightingClient&) = delete;
  // Tells the library nothing.
  virtual ~LightingClient() = default;

  // light_set_state(state).
  virtual int SetState(int state);

  // light_set_state_with_transition(state, transition).
  virtual int SetStateWithTransition(int state, int transition);
};

}  // namespace morvane::ap

#endif  // AV_LIGHTING_CLIENT_H_
