#include <stdexcept>

#include "tests/fake/module_test.h"

namespace KALO::MESH::Webapi {
namespace {

using fake::ElementsAre;

class DownloadCancelRequest : public fake::ModuleTest {};

TEST_F(DownloadCancelRequest, StopsTheTransferAndSaysSo) {
  for (const char* step : {"downloading", "failed", "none", "canceled"}) {
    platform.journal.Clear();
    platform.files["/tmp/mesh_download"] = {{"step", step}, {"percent", "40"}};
    Call(WebapiUpgradeDownloadCancel);
    EXPECT_THAT(Lines(), ElementsAre("cancel_download", "exist /tmp/mesh_download",
                                     "get /tmp/mesh_download step 8192",
                                     "get /tmp/mesh_download percent 8192",
                                     "set /tmp/mesh_download step=canceled",
                                     "set /tmp/mesh_download percent=0", "success null"))
        << step;
  }
}

TEST_F(DownloadCancelRequest, LeavesAFinishedDownload) {
  platform.files["/tmp/mesh_download"] = {{"step", "finished"}, {"percent", "100"}};
  Call(WebapiUpgradeDownloadCancel);
  EXPECT_THAT(Answers(), ElementsAre("success null"));
  EXPECT_EQ(platform.files["/tmp/mesh_download"]["step"], "finished");
}

TEST_F(DownloadCancelRequest, WithoutAFileOneIsWritten) {
  Call(WebapiUpgradeDownloadCancel);
  EXPECT_EQ(platform.files["/tmp/mesh_download"]["step"], "canceled");
}

TEST_F(DownloadCancelRequest, ATransferThatCannotBeStoppedIsAFailure) {
  platform.cancel_result = false;
  Call(WebapiUpgradeDownloadCancel);
  EXPECT_THAT(Lines(), ElementsAre("cancel_download", "error 117 null"));
}

TEST_F(DownloadCancelRequest, ABadPercentageAndABadParameterAreAnswered) {
  platform.files["/tmp/mesh_download"] = {{"step", "downloading"}, {"percent", "101"}};
  Call(WebapiUpgradeDownloadCancel);
  EXPECT_EQ(Logs().back(), "3 Exception: Invaild progress percentage");
  EXPECT_EQ(Answers().back(), "error 117 null");
  platform.throwers["cancel_download"] = fake::Throws(WebapiParamException("bad"));
  Call(WebapiUpgradeDownloadCancel);
  EXPECT_EQ(Logs().back(), "3 Parameter Error: bad");
  EXPECT_EQ(Answers().back(), "error 403 null");
}

TEST_F(DownloadCancelRequest, WhatIsNoStandardExceptionIsLeftToTheServer) {
  platform.throwers["cancel_download"] = fake::Throws(fake::NotStandard());
  EXPECT_THROW(Call(WebapiUpgradeDownloadCancel), fake::NotStandard);
}

}  // namespace
}  // namespace KALO::MESH::Webapi
