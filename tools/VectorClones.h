#ifndef ORVANE_TOOLS_VECTORCLONES_H
#define ORVANE_TOOLS_VECTORCLONES_H

// Marks a hot loop's function to be compiled twice, for AVX2 and for the baseline,
// the loader picking the one the processor runs. Both use the same IEEE operations
// (the build allows no contraction and no reassociation), so they give the same bits;
// only the width of a step differs.
#if defined(__x86_64__) && defined(__GNUC__)
#define ORVANE_VECTOR_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define ORVANE_VECTOR_CLONES
#endif

#endif
