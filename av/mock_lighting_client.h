#ifndef AV_MOCK_LIGHTING_CLIENT_H_
#define AV_MOCK_LIGHTING_CLIENT_H_

#include <gmock/gmock.h>

#include "av/lighting_client.h"

namespace morvane::ap {

class MockLightingClient : public LightingClient {
 public:
  MOCK_METHOD(int, SetState, (int state), (override));
  MOCK_METHOD(int, SetStateWithTransition, (int state, int transition),
              (override));
};

}  // namespace morvane::ap

#endif  // AV_MOCK_LIGHTING_CLIENT_H_
