# ICU from the system. Of its formatting and internationalisation parts the tool uses little, but the
# loader would relocate all of them at each start: where the static archives are there, they are
# linked instead. The common part and its data stay shared.
find_package(ICU REQUIRED COMPONENTS uc i18n io)
find_library(FERRY_ICUIO_ARCHIVE libicuio.a)
find_library(FERRY_ICUI18N_ARCHIVE libicui18n.a)
add_library(ferry_icu INTERFACE)
if(FERRY_ICUIO_ARCHIVE AND FERRY_ICUI18N_ARCHIVE)
  target_link_libraries(ferry_icu INTERFACE ${FERRY_ICUIO_ARCHIVE} ${FERRY_ICUI18N_ARCHIVE} ICU::uc)
else()
  target_link_libraries(ferry_icu INTERFACE ICU::io ICU::i18n ICU::uc)
endif()
