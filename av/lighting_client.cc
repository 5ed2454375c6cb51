#include "av/lighting_client.h"

#include "stubs/lightcontrol/lightcontrol.h"

namespace morvane::ap {

int LightingClient::SetState(int state) { return light_set_state(state); }

int LightingClient::SetStateWithTransition(int state, int transition) {
  return light_set_state_with_transition(state, transition);
}

}  // namespace morvane::ap
