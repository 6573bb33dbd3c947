#include "ferry/queue/connect.h"

#include "ferry/text/ucss.h"

#include <algorithm>
#include <cstring>
#include <string>

void ConnectX_v(const UnicodeString& sManager, BXHCONN& nConnection, BXLONG& nCompletion,
                BXLONG& nReason) {
  BXCNO obOptions = BXCNO_DEFAULT;
  obOptions.version = BXCNO_VERSION_4;
  obOptions.options = BXCNO_HANDLE_SHARE_NONE;
  BXCONNX(UCSS::ucsToDCP(sManager).c_str(), &obOptions, &nConnection, &nCompletion, &nReason);
}

void SetName_v(BXCHAR (&aField)[BX_NAME_LENGTH], const UnicodeString& sName) {
  const std::string sNarrow = UCSS::ucsToDCP(sName);
  std::memset(aField, 0, sizeof aField);
  std::memcpy(aField, sNarrow.data(), std::min(sNarrow.size(), sizeof aField));
}
