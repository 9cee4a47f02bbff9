# Slow pads and drones: detuned saws, gentle filters and long releases that hold chords together.
pelma-bank 1
name = Warm Pads
version = 1.0

[Velvet Strings]
osc1_wave = saw
osc2_wave = saw
osc2_level = 0.75
osc2_detune = 14
cutoff = 1400
resonance = 0.1
filter_env = 0.6
fenv_attack = 0.9
fenv_decay = 2
fenv_sustain = 0.6
amp_attack = 0.7
amp_decay = 1.5
amp_sustain = 0.85
amp_release = 1.8
vibrato = 0.04
lfo_rate = 5

[Slow Sweep]
osc1_wave = saw
osc2_wave = pulse
osc2_width = 0.4
osc2_level = 0.6
osc2_detune = -9
cutoff = 500
resonance = 0.45
filter_env = 2.5
fenv_attack = 3
fenv_decay = 4
fenv_sustain = 0.4
amp_attack = 1.2
amp_sustain = 0.9
amp_release = 2.5
lfo_rate = 0.15
lfo_cutoff = 0.6

[Choir Haze]
osc1_wave = pulse
osc1_width = 0.3
osc2_wave = triangle
osc2_level = 0.6
osc2_semitones = 12
noise_level = 0.08
filter_type = bandpass
cutoff = 1100
resonance = 0.35
amp_attack = 0.9
amp_sustain = 0.8
amp_release = 2
lfo_rate = 0.8
lfo_width = 0.2
lfo_cutoff = 0.3

[Dark Drone]
osc1_wave = saw
osc2_wave = saw
osc2_level = 0.8
osc2_semitones = -12
osc2_detune = 5
cutoff = 300
resonance = 0.3
amp_attack = 2
amp_sustain = 1
amp_release = 4
lfo_rate = 0.07
lfo_cutoff = 1.2

[Sunrise]
osc1_wave = triangle
osc2_wave = saw
osc2_level = 0.5
osc2_semitones = 7
osc2_detune = 4
cutoff = 700
filter_env = 2
fenv_attack = 4
fenv_decay = 5
fenv_sustain = 0.7
amp_attack = 2.5
amp_sustain = 0.9
amp_release = 3

[Breath Pad]
osc1_wave = sine
osc2_wave = triangle
osc2_level = 0.4
osc2_semitones = 12
noise_level = 0.25
cutoff = 2200
resonance = 0.2
amp_attack = 0.5
amp_sustain = 0.75
amp_release = 1.5
lfo_rate = 0.3
lfo_cutoff = 0.5
end
