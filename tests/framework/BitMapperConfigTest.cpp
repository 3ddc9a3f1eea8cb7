#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "framework/BitMapper/BitMapperKey.h"
#include "framework/BitMapper/Config.h"

namespace {

using BitMapper::BitMapperKey;
using BitMapper::Config;

BitMapperKey rpKey(const char* addr) {
  return BitMapperKey(Ipkit::IntfId(), Ipkit::IpGenAddr(Kel::String(addr)));
}

template <class T>
std::string printed(const T& value) {
  std::ostringstream os;
  os << value;
  return os.str();
}

// Reads every request as its counter notification arrives, the way an allocator would.
class Consumer : public Config::NotifieeConst {
 public:
  void onAllocRequestKey() override {
    journal.push_back("allocKey " + printed(notifier()->allocRequestKey()));
  }
  void onAllocRequestCount() override {
    journal.push_back("alloc " + printed(notifier()->allocRequestKey()) + " #" +
                      std::to_string(notifier()->allocRequestCount()));
  }
  void onDeallocRequestKey() override {
    journal.push_back("deallocKey " + printed(notifier()->deallocRequestKey()));
  }
  void onDeallocRequestCount() override {
    journal.push_back("dealloc " + printed(notifier()->deallocRequestKey()) + " #" +
                      std::to_string(notifier()->deallocRequestCount()));
  }
  std::vector<std::string> journal;
};

TEST(BitMapperKey, BitMapperKey_EqualityOrderAndPrinting) {
  const BitMapperKey none = rpKey("10.0.0.1");
  const BitMapperKey onEth =
      BitMapperKey(Ipkit::IntfId("eth0"), Ipkit::IpGenAddr(Kel::String("10.0.0.1")));
  EXPECT_EQ(none, rpKey("10.0.0.1"));
  EXPECT_NE(none, onEth);
  EXPECT_LT(none, onEth);  // the null interface sorts first
  EXPECT_LT(rpKey("10.0.0.1"), rpKey("10.0.0.2"));
  EXPECT_FALSE(rpKey("10.0.0.2") < rpKey("10.0.0.1"));
  EXPECT_EQ(printed(none), "{none, 10.0.0.1}");
  EXPECT_EQ(printed(onEth), "{eth0, 10.0.0.1}");
}

TEST(BitMapperConfig, Config_KeyThenCount_ConsumerSeesEveryRequestInOrder) {
  Kel::Ptr<Config> config(new Config);
  Consumer consumer;
  consumer.notifierIs(config);
  config->allocRequestKeyIs(rpKey("10.0.0.1"));
  config->allocRequestCountInc(1);
  config->deallocRequestKeyIs(rpKey("10.0.0.1"));
  config->deallocRequestCountInc(1);
  config->allocRequestKeyIs(rpKey("10.0.0.1"));  // unchanged: no key notification
  config->allocRequestCountInc(1);
  EXPECT_EQ(consumer.journal,
            (std::vector<std::string>{"allocKey {none, 10.0.0.1}", "alloc {none, 10.0.0.1} #1",
                                      "deallocKey {none, 10.0.0.1}", "dealloc {none, 10.0.0.1} #1",
                                      "alloc {none, 10.0.0.1} #2"}));
  EXPECT_EQ(config->allocRequestCount(), 2u);
  EXPECT_EQ(config->deallocRequestCount(), 1u);
}

TEST(BitMapperConfig, Config_Requests_LogInOrderAndDrained) {
  Kel::Ptr<Config> config(new Config);
  config->allocRequestKeyIs(rpKey("10.0.0.1"));
  config->allocRequestCountInc(1);
  config->deallocRequestKeyIs(rpKey("10.0.0.1"));
  config->allocRequestKeyIs(rpKey("10.0.0.2"));
  config->allocRequestCountInc(2);
  config->deallocRequestCountInc(1);
  config->allocRequestCountInc(0);
  std::vector<std::string> log;
  for (const Config::Request& request : config->requests()) log.push_back(printed(request));
  EXPECT_EQ(log, (std::vector<std::string>{"alloc {none, 10.0.0.1}", "alloc {none, 10.0.0.2}",
                                           "alloc {none, 10.0.0.2}", "dealloc {none, 10.0.0.1}"}));
  config->requestsDelAll();
  EXPECT_TRUE(config->requests().empty());
  EXPECT_EQ(config->allocRequestCount(), 3u);
}

TEST(BitMapperConfig, Config_RaiseByZero_NotifiesNothing) {
  Kel::Ptr<Config> config(new Config);
  Consumer consumer;
  consumer.notifierIs(config);
  config->allocRequestCountInc(0);
  config->deallocRequestCountInc(0);
  EXPECT_TRUE(consumer.journal.empty());
  EXPECT_TRUE(config->requests().empty());
}

TEST(BitMapperConfig, Config_CounterSetLower_NotifiesButAppendsNoRequest) {
  Kel::Ptr<Config> config(new Config);
  Consumer consumer;
  consumer.notifierIs(config);
  config->deallocRequestKeyIs(rpKey("10.0.0.1"));
  config->deallocRequestCountInc(2);
  config->deallocRequestCountIs(1);
  EXPECT_EQ(config->requests().size(), 2u);
  EXPECT_EQ(consumer.journal,
            (std::vector<std::string>{"deallocKey {none, 10.0.0.1}", "dealloc {none, 10.0.0.1} #2",
                                      "dealloc {none, 10.0.0.1} #1"}));
}

}  // namespace
