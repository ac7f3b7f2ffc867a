// The last number of a change file.  The tables lie in plain memory here, and there is
// no file that could be written.
#include "catalog/catalog.h"
#include "memory/shared_tables_fixture.h"
#include "support/cf_names.h"

namespace catalog_test {
namespace {

using zvrtest::cf;
using zvrtest::CfName;

TEST(CatalogNumbers, WhenAllAreTakenAPutIsRefusedBeforeAnythingIsWritten) {
  constexpr std::uint32_t most = 65535;
  zvrtest::table_task tables(1, most + 500);
  zvrdb::DBR_CNTL* cntl = tables.cntl();
  for (std::uint32_t n = 0; n < most; ++n) {
    zvrdb::DIST_CAT_ENTRY& slot = tables.tcb()->dist_cat[n];
    slot.cf_number = static_cast<std::uint16_t>(n);
    // Five digits, so that the order of numbers is that of names.
    char text[8];
    std::snprintf(text, sizeof text, "%05u", n);
    std::memcpy(slot.head, cf(text).data(), 76);
    tables.tcb()->cat_cntl[n] = {static_cast<std::uint16_t>(n), static_cast<std::uint8_t>(0), 0};
  }
  cntl->num_cat_inited = most;
  cntl->num_cat_actual = most;
  std::vector<unsigned char> record(2464);
  const CfName name = cf("NEW");
  std::memcpy(record.data(), name.data(), name.size());
  const void* keys[] = {name.data()};
  EXPECT_EQ(zvrdb::catalog::put_cat(tables.task(), 1, keys, record.data(), 2464), DBE_LIMIT_EXCEEDED);
  EXPECT_EQ(cntl->num_cat_inited, most);
  EXPECT_EQ(cntl->num_cat_actual, most);
  EXPECT_EQ(cntl->shm_generation, 0u);
  EXPECT_EQ(tables.tcb()->dist_cat[most].head[0], 0);
  EXPECT_EQ(tables.tcb()->dist_cat[0].cf_number, 0);
}

}  // namespace
}  // namespace catalog_test
