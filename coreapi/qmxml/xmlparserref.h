#pragma once

/// The XML library's set-up and clean-up counted: the stock library has neither count. Private to this
/// folder. Any thread.

/// Calls of `xmlInitParserQM` that no `xmlCleanupParserQM` has matched yet.
int xmlParserRefCounter() noexcept;

/// Counts up; the first one sets the library up. 0, or another number when no more can be counted.
int xmlInitParserQM();

/// Counts down; the last one cleans the library up. 0, or another number when the count is 0 already.
int xmlCleanupParserQM();
