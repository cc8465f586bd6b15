// Twiddle factors of the split-radix stages, made without a table.
//
// A stage of size m rotates by j·e and 3j·e with e = 2π/m. The transforms of size n
// start from a = 2π/(2n): sin a, cos a, sin 3a and cos 3a are computed in 64-bit and
// narrowed to 32-bit once. Everything after that is 32-bit float:
//  - between stages the angle doubles (sin 2x = 2 sin x cos x, cos 2x = 1 - 2 sin² x),
//    so the stage of size m holds the start doubled log2(2n/m) times, whichever way
//    the stages run (up in the forward real transform, down in the others);
//  - within a stage, the twiddle of j is the product (angle addition) of the stage's
//    angle doubled once per binary digit of j: e, 2e, 4e, ... picked by the set bits.
// cos 2x is taken from sin x alone because cos x of the small angles rounds to 1.0f.
// The binary form keeps every twiddle within about log2 j roundings of the truth:
// over all stages of n = 65536 the largest error is 5.8e-7, where stepping j by one
// angle addition at a time drifts by up to 4.7e-4 (its roundings are biased and add
// up over 8191 steps). Pure values; no allocation; any thread.
#pragma once

struct StageTwiddles {
    float cos1 = 1.0f;
    float sin1 = 0.0f;
    float cos3 = 1.0f;
    float sin3 = 0.0f;

    // The starting angle a = 2π/(2n) of a transform of size n, and 3a.
    static StageTwiddles start(int n);
    // The angles e = 2π/size and 3e of one stage of a transform of size n.
    static StageTwiddles forStage(int n, int size);

    // Both angles doubled.
    StageTwiddles doubled() const;
    // Both angles advanced by the angles of `step` (angle addition).
    StageTwiddles rotatedBy(const StageTwiddles& step) const;
    // Both angles times j >= 0, from the binary digits of j (j = 0 gives 1 and 0).
    StageTwiddles multiple(int j) const;
};
