// The version record of a plug-in file: text lines in a section named
// ".tq.version" that is not loaded into memory (no alloc flag). One unit per
// plug-in file expands TQ_VERSION_RECORD once.
#pragma once

// "%progbits" rather than "@progbits": "@" starts a comment in ARM assembly.
#define TQ_VERSION_RECORD(text) \
    __asm__(".pushsection .tq.version,\"\",%progbits\n.ascii \"" text "\"\n.popsection\n")
