pelma-bank 1
name = Small
[A]
cutoff = 1e9
osc1_wave = Sine
[B]
volume = x
end
