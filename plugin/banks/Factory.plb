# The factory bank: shipped inside the pelma.lv2 bundle, always bank 0.
pelma-bank 1
name = Factory
version = 1.0

[Init]

[Warm Pad]
osc1_wave = saw
osc2_wave = saw
osc2_level = 0.6
osc2_detune = 12
cutoff = 900
resonance = 0.2
filter_env = 1.5
fenv_attack = 0.8
fenv_decay = 1.5
fenv_sustain = 0.5
amp_attack = 0.6
amp_decay = 1
amp_sustain = 0.9
amp_release = 1.5
lfo_rate = 0.3
lfo_cutoff = 0.3

[Bright Lead]
osc1_wave = pulse
osc1_width = 0.35
osc2_wave = saw
osc2_level = 0.4
osc2_semitones = 12
osc2_detune = 5
cutoff = 2500
resonance = 0.45
filter_env = 2.5
fenv_decay = 0.3
fenv_sustain = 0.4
amp_sustain = 0.9
vibrato = 0.08
lfo_rate = 5.5

[Round Bass]
osc1_wave = saw
osc2_wave = pulse
osc2_level = 0.6
osc2_semitones = -12
cutoff = 300
resonance = 0.35
filter_env = 3
fenv_decay = 0.25
fenv_sustain = 0.1
key_tracking = 0.3
amp_decay = 0.5
amp_sustain = 0.8
amp_release = 0.1

[Glass Pluck]
osc1_wave = triangle
osc2_wave = sine
osc2_level = 0.3
osc2_semitones = 19
cutoff = 1500
filter_env = 3
fenv_decay = 0.35
fenv_sustain = 0
amp_attack = 0.002
amp_decay = 1.2
amp_sustain = 0
amp_release = 0.4

[String Ensemble]
osc1_wave = saw
osc2_wave = saw
osc2_level = 0.8
osc2_detune = -9
cutoff = 3000
amp_attack = 0.25
amp_release = 0.8
vibrato = 0.05
lfo_rate = 4.5

[Hollow Keys]
osc1_wave = pulse
osc2_wave = triangle
osc2_level = 0.4
osc2_semitones = 12
cutoff = 1800
filter_env = 1.5
fenv_decay = 0.6
fenv_sustain = 0.2
amp_decay = 1.5
amp_sustain = 0.4
amp_release = 0.3

[Breath Flute]
osc1_wave = sine
noise_level = 0.15
filter_type = bandpass
cutoff = 1200
resonance = 0.3
key_tracking = 1
amp_attack = 0.08
amp_release = 0.25
vibrato = 0.1
lfo_rate = 5

[Sweep Pad]
osc1_wave = pulse
osc1_width = 0.3
lfo_width = 0.2
osc2_wave = saw
osc2_level = 0.5
osc2_detune = 8
cutoff = 600
resonance = 0.6
lfo_cutoff = 1.5
lfo_rate = 0.15
amp_attack = 1.2
amp_release = 2

end
