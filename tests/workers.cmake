# The tests of the classes below the window.

veyra_add_test(test_server_checker SOURCES TestServerChecker.cpp LIBRARIES veyra_net)
veyra_add_test(test_news_fetcher SOURCES TestNewsFetcher.cpp LIBRARIES veyra_net)
veyra_add_test(test_self_updater SOURCES TestSelfUpdater.cpp LIBRARIES veyra_update)
veyra_add_test(test_archive_unpacker SOURCES TestArchiveUnpacker.cpp LIBRARIES veyra_install)
veyra_add_test(test_client_downloader SOURCES TestClientDownloader.cpp LIBRARIES veyra_install)
veyra_add_test(test_update_manifest SOURCES TestUpdateManifest.cpp LIBRARIES veyra_update)
veyra_add_test(test_file_verification
    SOURCES TestFileVerification.cpp LIBRARIES veyra_update LABELS threads)
veyra_add_test(test_download_queue SOURCES TestDownloadQueue.cpp LIBRARIES veyra_update)
