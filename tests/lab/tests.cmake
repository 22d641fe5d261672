if(NOT with_archive_host)
  return()
endif()

add_library(lab_support STATIC lab/lab.cpp)
target_compile_definitions(lab_support PRIVATE RSA_8192="${CMAKE_CURRENT_LIST_DIR}/rsa_8192")
target_link_libraries(lab_support PUBLIC test_support)

tavren_test(lab_login_tests lab/login_test.cpp lab/host_key_test.cpp lab/password_test.cpp lab/banner_test.cpp
  lab/far_shells_test.cpp lab/client_configuration_test.cpp
  TOGETHER EXCEPT Login.OfAnAccount*:Login.ToAServer*:Login.Failure*:HostKey.OfAServer*:BannerWith*:FarShell.*:*Configuration.*
  LAB)
tavren_test(lab_transfer_tests lab/files_test.cpp lab/failures_test.cpp
  TOGETHER EXCEPT *FileSize*/67108864:FarSide.WithAFullDisk*:FarSide.Killed* LAB TIMEOUT 120)
tavren_test(lab_session_tests lab/threads_test.cpp lab/many_sessions_test.cpp lab/guest_test.cpp lab/stream_ends_test.cpp
  lab/host_check_test.cpp
  TOGETHER EXCEPT HostCheckInTheLab.FailsW*:Guest.*:DescriptorsOf*:ManySessions.*:BusyServer.*:OtherThread.*
  LAB TIMEOUT 120)
tavren_test(lab_stream_tests lab/streams_test.cpp LAB TIMEOUT 900)

program_of(tavren_send tavren_send)

# Which chassis tavren_send runs on is said with the stand-in's tool.
if(TARGET hodra-put)
  tavren_test(lab_example_tests lab/tavren_send_test.cpp lab/tavren_send_checks_test.cpp
    TOGETHER EXCEPT TavrenSendChecks.PinsThe*:TavrenSendChecks.ReportsAHost*:TavrenSendChecks.SaysWhyTheKey*
    LAB TIMEOUT 120 COST 800)
  target_compile_definitions(lab_example_tests PRIVATE
    TAVREN_SEND="${tavren_send}" HODRA_PUT="${hodra_put}")
  add_dependencies(lab_example_tests tavren_send hodra-put)
endif()

# What these look at is the library as it is shipped, not what a sanitizer makes of it.
if(NOT TAVREN_SANITIZE)
  tavren_test(lab_memory_tests lab/memory_test.cpp LAB TIMEOUT 600)
  target_compile_definitions(lab_memory_tests PRIVATE TAVREN_SEND="${tavren_send}")
  add_dependencies(lab_memory_tests tavren_send)
  tavren_test(lab_cost_tests lab/chunk_cost_test.cpp LAB)
  if(NOT CMAKE_CROSSCOMPILING)
    tavren_test(lab_readme_tests lab/readme_test.cpp LAB)
    target_compile_definitions(lab_readme_tests PRIVATE README_FILE="${PROJECT_SOURCE_DIR}/README.md"
      INCLUDE_DIR="${PROJECT_SOURCE_DIR}/include" LIBRARY_DIR="$<TARGET_FILE_DIR:tavren>")
  endif()
endif()

# The archive host itself, where it gets less than it would like to have.
if(NOT TAVREN_SANITIZE AND NOT CMAKE_CROSSCOMPILING)
  add_test(NAME ArchiveHost.InPlaceWorksAndLeavesNothing COMMAND ${CMAKE_CURRENT_LIST_DIR}/odd-places in-place)
  add_test(NAME ArchiveHost.InAChrootShowsNoMountOutside COMMAND ${CMAKE_CURRENT_LIST_DIR}/odd-places chroot)
  set_tests_properties(ArchiveHost.InPlaceWorksAndLeavesNothing ArchiveHost.InAChrootShowsNoMountOutside PROPERTIES
    TIMEOUT 600 SKIP_RETURN_CODE 77)
endif()
