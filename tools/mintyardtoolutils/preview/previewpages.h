// The wizard's pages that this module provides, registered through the page seam of the wizard
// (wizardpage.h). The tool calls this once at start, before it opens a wizard.
#pragma once

// Registers CQImportPreviewEditor as the wizard's step-5 page.
void RegisterImportPreviewEditorPage();
