if(with_archive_host)
  # Real clients, servers and key generators, and some in their places: all of it beside a private archive host, whose
  # file system can be changed.
  tavren_test(key_download_tests keys/key_download_test.cpp keys/key_download_dialogue_test.cpp
    process/faults.cpp $<TARGET_OBJECTS:scripted_client>
    TOGETHER EXCEPT *KeyDownloadOfType.*:KeyDownload.OfA*:KeyDownload.Works*:KeyDownloadFault.*
    LAB TIMEOUT 180) # keys of 4,096 bits take some time to make
  tavren_test(key_download_time_tests keys/key_download_time_test.cpp keys/key_download_faults_test.cpp
    $<TARGET_OBJECTS:early_ends> $<TARGET_OBJECTS:failing_memory>
    $<TARGET_OBJECTS:recorded_system> $<TARGET_OBJECTS:scripted_client> TOGETHER LAB)
  tavren_test(fingerprint_tests keys/fingerprint_test.cpp keys/fingerprint_failures_test.cpp
    keys/fingerprint_hosts_test.cpp keys/fingerprint_catalogue_test.cpp process/hosts.cpp
    TOGETHER EXCEPT FingerprintCatalogue.*:FingerprintFailure.Without*:*FingerprintInAHost* LAB TIMEOUT 180)
endif()

# Without one: the tools' places and the shell command, which this program watches.
tavren_test(key_tools_tests keys/key_tools_test.cpp)
