#include "platform/foundation/NotificationCenter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace platform {
namespace {

TEST(NotificationCenter, DeliversByNameAndSenderInRegistrationOrderWithUserInfo) {
  NotificationCenter center;
  int engine = 0;
  int otherEngine = 0;
  std::vector<std::string> calls;
  center.addObserver("BanksUpdated", nullptr, [&](const Notification&) { calls.push_back("any"); });
  center.addObserver("Changed", &engine, [&](const Notification& n) {
    EXPECT_EQ(n.object, &engine);
    calls.push_back("engine " + std::to_string(std::any_cast<int>(n.userInfo.at("audioUnit"))));
  });
  center.addObserver("BanksUpdated", nullptr,
                     [&](const Notification&) { calls.push_back("any2"); });

  center.postNotificationName("BanksUpdated");
  center.post({"Changed", &otherEngine, {{"audioUnit", 1}}});  // another sender: not delivered
  center.post({"Changed", &engine, {{"audioUnit", 42}}});
  center.postNotificationName("Unobserved");
  EXPECT_EQ(calls, (std::vector<std::string>{"any", "any2", "engine 42"}));
}

// Also while a delivery is under way: an observer removed then is not called.
TEST(NotificationCenter, RemovesByIdAndByOwnerAndNameAlsoDuringDelivery) {
  NotificationCenter center;
  int owner = 0;
  int count = 0;
  auto id = center.addObserver("A", nullptr, [&](const Notification&) { count += 1; });
  center.addObserver(
      "A", nullptr, [&](const Notification&) { count += 10; }, &owner);
  center.addObserver(
      "B", nullptr, [&](const Notification&) { count += 100; }, &owner);
  center.removeObserver(id);
  center.postNotificationName("A");
  EXPECT_EQ(count, 10);
  center.removeObserver(&owner, "A");  // only the owner's "A" observer
  center.postNotificationName("A");
  center.postNotificationName("B");
  EXPECT_EQ(count, 110);
  center.removeObserver(&owner);
  EXPECT_EQ(center.observerCount(), 0u);

  NotificationCenter::ObserverId second = 0;
  center.addObserver("C", nullptr, [&](const Notification&) {
    center.removeObserver(second);
    center.postNotificationName("D");  // a handler may post
  });
  second = center.addObserver("C", nullptr, [&](const Notification&) { count = -1; });
  center.addObserver("D", nullptr, [&](const Notification&) { count += 1000; });
  center.postNotificationName("C");
  EXPECT_EQ(count, 1110);
}

}  // namespace
}  // namespace platform
