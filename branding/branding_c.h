/* The constants of branding.h in C, untranslated. */

#pragma once

#ifdef __cplusplus
extern "C" {
#endif

extern char* BrandingSuiteName;
extern char* BrandingSuiteIconName;
extern char* BrandingCopyrightTalvoraSoftware;
extern char* BrandingSprintstartName;
extern char* BrandingSprintstartNameTitleCase;
extern char* BrandingSprintstartNameSentenceStart;
extern char* BrandingSupportFormURL;
extern char* BrandingSalesEmailAddress;
extern char* BrandingVelmorSupport;
extern char* BrandingOrganizationName;
extern char* BrandingOrganizationURL;
extern char* BrandingProfilerName;

#ifdef __cplusplus
}
#endif
