#pragma once
// Addresses that a build fixes: the product's web site and the home of the speech models. They
// come from the build's QUENDA_SITE_HOST, QUENDA_MODEL_BASE_URL and QUENDA_MODEL_PAGE_URL.

#include <QString>

namespace quenda {

/// Host name of the product's web site, as the user reads it.
inline const QString kProductSiteHost = QStringLiteral(QUENDA_SITE_HOST);

/// The small file that tells of the newest release.
inline const QString kUpdateManifestUrl =
    QStringLiteral("https://" QUENDA_SITE_HOST "/quenda-version.json");

/// What stands before a model's file name in its download address: the whisper.cpp project's
/// repository of converted models. Ends in a slash.
inline const QString kModelBaseUrl = QStringLiteral(QUENDA_MODEL_BASE_URL);

/// The page where a person sees all models of that repository.
inline const QString kModelPageUrl = QStringLiteral(QUENDA_MODEL_PAGE_URL);

/// The speech recogniser's project.
inline const QString kEngineProjectUrl = QStringLiteral("https://github.com/ggerganov/whisper.cpp");

} // namespace quenda
