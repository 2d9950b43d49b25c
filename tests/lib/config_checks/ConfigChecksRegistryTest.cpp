// The front end reaches the checks only by name through the registry: factories, construction,
// operations, attributes and the text form.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "lib/config_checks/AddressQueryResult.h"
#include "lib/registry/TypeRegistry.h"
#include "platform/mox/Dir.h"
#include "tests/lib/config_checks/IpConfigBuilder.h"

namespace {

using ConfigChecksTest::Ip4;
using ConfigChecksTest::Ip6;
using Rova::TypeRegistry;
using Rova::Value;

const TypeRegistry& reg() {
  return TypeRegistry::instance();
}

Value handle(Mox::Ptr<Mox::Entity> e) {
  return Value(std::move(e));
}

TEST(ConfigChecksRegistry, AddressCheckByNames) {
  Ip4 ip;
  ip.intf("Ethernet2", "10.1.1.1/24");
  const auto& entry = reg().type("Rova::AddressQueryParams");
  EXPECT_EQ(entry.factory, "addressQueryParamsFactory");
  ASSERT_EQ(entry.constructorInputs.size(), 6u);
  EXPECT_EQ(entry.constructorInputs[3].typeName, "Rova::AddrMatchType");

  const Value args[] = {handle(ip.config),     Value("Ethernet1"),       Value("Management"),
                        Value("allowNoMatch"), Value("allowExactMatch"), Value("10.1.1.1/24")};
  Value params = reg().construct("Rova::AddressQueryParams", args);

  Value checker = reg().construct("Rova::AddressAssignmentChecker", {});
  const Value checkArgs[] = {params};
  Value result = reg().call(checker, "check", checkArgs);
  EXPECT_EQ(result.text(),
            "Value('Rova::AddressQueryResult', ** {'acceptable': False, 'msg': 'Address 10.1.1.1 "
            "is already assigned to interface Ethernet2'})");

  // The setters reach the same object the check reads.
  const Value other[] = {Value("10.7.7.7/24")};
  reg().call(params, "addrWithMaskIs", other);
  result = reg().call(checker, "check", checkArgs);
  EXPECT_EQ(reg().attribute(result, "acceptable"), Value(true));
  EXPECT_EQ(reg().attribute(result, "msg"), Value(""));
}

TEST(ConfigChecksRegistry, Address6CheckByNames) {
  Ip6 ip;
  const Value args[] = {handle(ip.config), Value("Ethernet1"), Value("Management"),
                        Value("fe80::1/64")};
  Value params = reg().construct("Rova::Address6QueryParams", args);
  Value checker = reg().construct("Rova::Address6AssignmentChecker", {});
  const Value checkArgs[] = {params};
  const Value result = reg().call(checker, "check", checkArgs);
  // The message holds single quotes, so its text form switches to double quotes, and reads
  // back unchanged.
  const std::string text = result.text();
  EXPECT_EQ(text,
            "Value('Rova::AddressQueryResult', ** {'acceptable': False, 'msg': \"'link-local' "
            "keyword must be used to configure a link local address.\"})");
  EXPECT_EQ(reg().parse(text), result);
}

TEST(ConfigChecksRegistry, RdCheckerByNames) {
  auto dir = Mox::makePtr<Mox::Dir>();
  auto input = Mox::makePtr<Ip::RouteDistinguisherInput>();
  input->routeDistinguisherIs("blue", Plexa::RouteDistinguisher::fromString("100:1"));
  dir->entityIs("bgp", input);

  const Value args[] = {handle(dir), Value("red"), Value("100:1")};
  Value c = reg().construct("Rova::RdAssignmentChecker", args);
  EXPECT_EQ(reg().attribute(c, "acceptable"), Value(false));
  EXPECT_EQ(reg().attribute(c, "errorMessage"), Value("RD 100:1 already in use by VRF blue"));
  EXPECT_THROW(reg().attributeIs(c, "acceptable", Value(true)), Mox::RangeException);

  reg().attributeIs(c, "vrfName", Value("blue"));
  reg().call(c, "handleInitialized", {});
  EXPECT_EQ(reg().attribute(c, "acceptable"), Value(true));

  const Value parsed = reg().parse(
      "Value('Rova::RdAssignmentChecker', ** {'routeDistinguisherInputDir': None, 'vrfName': "
      "'red', 'routeDistinguisher': '100:1', 'acceptable': False, 'errorMessage': ''})");
  EXPECT_EQ(reg().attribute(parsed, "acceptable"), Value(true));
}

}  // namespace
