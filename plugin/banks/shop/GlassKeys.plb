# Bell-like keys and plucks: sine and triangle tones with quick decays and long tails.
pelma-bank 1
name = Glass Keys
version = 1.0

[Glass Bell]
osc1_wave = triangle
osc1_level = 0.7
osc2_wave = sine
osc2_level = 0.5
osc2_semitones = 19
osc2_detune = 3
cutoff = 6000
resonance = 0.1
filter_env = 1
fenv_decay = 1.2
fenv_sustain = 0
amp_attack = 0.002
amp_decay = 2.5
amp_sustain = 0
amp_release = 2
velocity_sense = 0.8

[Crystal EP]
osc1_wave = sine
osc1_level = 0.8
osc2_wave = triangle
osc2_level = 0.35
osc2_semitones = 12
cutoff = 3200
resonance = 0.15
filter_env = 1.5
fenv_decay = 0.6
fenv_sustain = 0.2
amp_decay = 1.8
amp_sustain = 0.35
amp_release = 0.6
vibrato = 0.03
lfo_rate = 4.5

[Music Box]
osc1_wave = sine
osc2_wave = sine
osc2_level = 0.3
osc2_semitones = 24
cutoff = 9000
amp_attack = 0.001
amp_decay = 1.2
amp_sustain = 0
amp_release = 1.2

[Celesta]
osc1_wave = triangle
osc2_wave = sine
osc2_level = 0.45
osc2_semitones = 12
osc2_detune = -4
cutoff = 4500
filter_env = 0.8
fenv_decay = 0.4
fenv_sustain = 0.1
amp_decay = 1.4
amp_sustain = 0.05
amp_release = 0.9

[Ice Pluck]
osc1_wave = pulse
osc1_width = 0.2
osc2_wave = triangle
osc2_level = 0.4
osc2_semitones = 12
cutoff = 1800
resonance = 0.4
filter_env = 3
fenv_decay = 0.18
fenv_sustain = 0
amp_decay = 0.6
amp_sustain = 0
amp_release = 0.5

[Chime Pad]
osc1_wave = sine
osc2_wave = triangle
osc2_level = 0.5
osc2_semitones = 7
osc2_detune = 6
cutoff = 5000
amp_attack = 0.4
amp_decay = 3
amp_sustain = 0.6
amp_release = 2.5
lfo_rate = 0.4
lfo_cutoff = 0.4
end
