// ModelDownloader
